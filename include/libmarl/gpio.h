/**
 * @defgroup gpio GPIO and expander
 * @brief Board signals: the SoC's GPIO lines 0..71, and the 8 inputs and 8 outputs of the I/O expander.
 *
 * The lines are behind `/dev/misc/gpio`, wrapped in one reference-counted object per process, which exists
 * and is open before `main` (libmarl_init()).
 *
 * @par Which call
 * A program just calls gpio_get_bit() and gpio_set_bit(), or gio_expander_read() and gio_expander_write(),
 * whose first use opens their device. createGPIO() and the operations on an object are what these are made
 * of; a second object is refused as long as #pg_gpio lives. What a line is for is the board's; for the modem's
 * supply use power_3g_on(), for the signal output signal_output_on(), which know it.
 *
 * @par Messages
 * An operation on a null object, an object without private record or, where it needs the device, a closed one
 * returns -1 after `%s: thiz`, `%s: thiz->priv` or `%s: priv->common.fd ` with its name on standard error.
 * Lines, levels and modes out of range are refused silently.
 *
 * @par Thread safety
 * Nothing here takes a lock. Each access to a line is one system call and safe from any thread. Creating,
 * opening, closing and counting references, and the first use of each expander call, belong to one thread,
 * with no access beside them.
 *
 * @par Example
 * @code{.c}
 * if (gpio_get_bit(23) == 0) gpio_set_bit(45, 1);
 * uint8_t door = 0;
 * if (gio_expander_read(3, &door) >= 0) puts(door != 0 ? "door open" : "door closed");
 * @endcode
 * @{
 */
#ifndef LIBMARL_GPIO_H
#define LIBMARL_GPIO_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_GPIO_LINES 72 /**< GPIO lines, numbered from 0 */

typedef struct GPIO GPIO;

/**
 * The GPIO lines of a process: made by createGPIO(), ended by the last gpio_release(). The operations are in
 * the order of their slots; each takes the object first.
 */
struct GPIO {
    void* priv;                                                        /**< the library's own */
    int (*addref)(GPIO* thiz);                                         /**< gpio_addref() */
    int (*release)(GPIO* thiz);                                        /**< gpio_release() */
    int (*open)(GPIO* thiz);                                           /**< gpio_open() */
    int (*close)(GPIO* thiz);                                          /**< gpio_close() */
    int (*readbit)(GPIO* thiz, uint32_t line);                         /**< gpio_readbit() */
    int (*writebit)(GPIO* thiz, uint32_t line, uint32_t level);        /**< gpio_writebit() */
    int (*interrupt_enable)(GPIO* thiz, uint32_t line, uint32_t mode); /**< gpio_interrupt_enable() */
    int (*interrupt_disable)(GPIO* thiz, uint32_t line);               /**< gpio_interrupt_disable() */
};

/** The object of this process, created before `main`; the library never releases it. */
MARL_API extern GPIO* pg_gpio;

/**
 * Creates the one object, with one reference, and opens the device.
 *
 * @param out  where the object goes; left alone when an object exists, null when it cannot be made
 * @return 0, or -1:
 *  - an object exists already (ERROR line `Error:OBJ is created\n`);
 *  - `out` is null (ERROR line `Obiect is NULL\n`);
 *  - there is no memory (`malloc(sizeof(%s))` on standard error), or the device cannot be opened (`open %s `
 *    on standard error); nothing is left allocated then.
 */
MARL_API int createGPIO(GPIO** out);

/**
 * One reference more.
 *
 * @param thiz  the object
 * @return 0, or -1
 */
MARL_API int gpio_addref(GPIO* thiz);

/**
 * One reference less. The last release closes the device and ends the object. Pointers to it stay valid: until
 * the next createGPIO(), which gives the same pointer, operations find no private record.
 *
 * @param thiz  the object
 * @return 0, or -1
 */
MARL_API int gpio_release(GPIO* thiz);

/**
 * Opens the device of a closed object, or prints a warning on standard output when it is open already.
 *
 * @param thiz  the object
 * @return 0, or -1 when it cannot be opened (`open %s ` on standard error)
 */
MARL_API int gpio_open(GPIO* thiz);

/**
 * Closes the device; the object lives on.
 *
 * @param thiz  the object
 * @return 0, or -1
 */
MARL_API int gpio_close(GPIO* thiz);

/**
 * The level of a line.
 *
 * @param thiz  the object
 * @param line  0..71
 * @return 0 or 1; -1 for a line above 71, a failed read or one that gives no byte
 */
MARL_API int gpio_readbit(GPIO* thiz, uint32_t line);

/**
 * Sets a line.
 *
 * @param thiz   the object
 * @param line   0..71
 * @param level  0 or 1
 * @return the write's result, 2 on success; -1 for a line or level out of range
 */
MARL_API int gpio_writebit(GPIO* thiz, uint32_t line, uint32_t level);

/**
 * Sets the driver's interrupt mode of a line.
 *
 * @param thiz  the object
 * @param line  0..71
 * @param mode  0 (off) to 3; what 1 to 3 mean is the driver's
 * @return the result of the ioctl(2); -1 for a line or mode out of range
 */
MARL_API int gpio_interrupt_enable(GPIO* thiz, uint32_t line, uint32_t mode);

/**
 * Switches a line's interrupt off: mode 0.
 *
 * @param thiz  the object
 * @param line  0..71
 * @return as gpio_interrupt_enable()
 */
MARL_API int gpio_interrupt_disable(GPIO* thiz, uint32_t line);

/**
 * gpio_readbit() of #pg_gpio.
 *
 * @param line  0..71
 * @return as there; -1 with `pg_gpio==NULL\n` on standard error without the object
 */
MARL_API int gpio_get_bit(uint32_t line);

/**
 * gpio_writebit() of #pg_gpio.
 *
 * @param line   0..71
 * @param level  0 or 1
 * @return as there; -1 with `pg_gpio==NULL\n` on standard error without the object
 */
MARL_API int gpio_set_bit(uint32_t line, uint32_t level);

/**
 * Reads an expander input, behind `/dev/misc/gio_expd_in`. A device that cannot be opened is reported as
 * `open %s failed\n` on standard output.
 *
 * @param num  0..7. A number above 7 reads as 0 after `invalid parameter: num=%d(rang is 0-7)\n` on standard
 *             error.
 * @param out  where the level goes; left alone when the read fails or gives no byte
 * @return the level, 0 or 1; -1 for a failure and for null
 */
MARL_API int gio_expander_read(uint32_t num, uint8_t* out);

/**
 * Sets an expander output, behind `/dev/misc/gio_expander`. A device that cannot be opened is reported as
 * `open %s failed\n` on standard output.
 *
 * @param num    0..7
 * @param value  0 or 1. Numbers out of range are sent all the same, cut to 8 bits, after
 *               `invalid parameter: num=%d,value=%d\n` on standard output.
 * @return the write's result, 2 on success and negative on failure
 */
MARL_API int gio_expander_write(uint32_t num, uint32_t value);

MARL_END_DECLS

/** @} */

#endif
