/*
 * Board signals: the SoC's GPIO lines 0..71 behind /dev/misc/gpio, wrapped in one reference-counted object
 * per process, and the 8 inputs and 8 outputs of the I/O expander.
 *
 * The object exists and is open before main() (libmarl/init.h), so a program just calls gpio_get_bit() and
 * gpio_set_bit(), or gio_expander_read() and gio_expander_write(); the first use of each expander call opens
 * its device. createGPIO() and the other operations are what the object is made of.
 *
 * Nothing here takes a lock. Each access to a line is one system call and safe from any thread. Creating,
 * opening, closing and counting references, and the first use of each expander call, belong to one thread,
 * with no access beside them.
 *
 * An operation on a null object, an object without private record or, where it needs the device, a closed one
 * returns -1 after "%s: thiz", "%s: thiz->priv" or "%s: priv->common.fd " with its name on standard error.
 * Lines, levels and modes out of range are refused silently.
 */
#ifndef LIBMARL_GPIO_H
#define LIBMARL_GPIO_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_GPIO_LINES 72

typedef struct GPIO GPIO;

struct GPIO {
    void* priv;
    int (*addref)(GPIO* thiz);
    int (*release)(GPIO* thiz);
    int (*open)(GPIO* thiz);
    int (*close)(GPIO* thiz);
    int (*readbit)(GPIO* thiz, uint32_t line);
    int (*writebit)(GPIO* thiz, uint32_t line, uint32_t level);
    int (*interrupt_enable)(GPIO* thiz, uint32_t line, uint32_t mode);
    int (*interrupt_disable)(GPIO* thiz, uint32_t line);
};

/* The object of this process, created before main(); the library never releases it. */
MARL_API extern GPIO* pg_gpio;

/*
 * Creates the one object, with one reference, and opens the device. 0, or -1:
 *  - an object exists already (ERROR line "Error:OBJ is created"); `*out` is left alone;
 *  - `out` is null (ERROR line "Obiect is NULL");
 *  - there is no memory ("malloc(sizeof(%s))" on standard error), or the device cannot be opened ("open %s "
 *    on standard error); `*out` is null then and nothing is left allocated.
 */
MARL_API int createGPIO(GPIO** out);

/*
 * One reference more or less. The last release closes the device and ends the object. 0, or -1.
 * Pointers to it stay valid: until the next createGPIO(), which gives the same pointer, operations find
 * no private record.
 */
MARL_API int gpio_addref(GPIO* thiz);
MARL_API int gpio_release(GPIO* thiz);

/*
 * Opens the device of a closed object, or prints a warning on standard output when it is open already. 0, or
 * -1 when it cannot be opened ("open %s " on standard error).
 */
MARL_API int gpio_open(GPIO* thiz);

/* Closes the device; the object lives on. 0, or -1. */
MARL_API int gpio_close(GPIO* thiz);

/* The level of a line, 0 or 1; -1 for a line above 71, a failed read or one that gives no byte. */
MARL_API int gpio_readbit(GPIO* thiz, uint32_t line);

/* Sets a line to level 0 or 1. The write's result, 2 on success; -1 for a line or level out of range. */
MARL_API int gpio_writebit(GPIO* thiz, uint32_t line, uint32_t level);

/*
 * Sets the driver's interrupt mode of a line, 0 (off) to 3; disabling is mode 0. The result of the ioctl(2);
 * -1 for a line or mode out of range.
 */
MARL_API int gpio_interrupt_enable(GPIO* thiz, uint32_t line, uint32_t mode);
MARL_API int gpio_interrupt_disable(GPIO* thiz, uint32_t line);

/* gpio_readbit and gpio_writebit of `pg_gpio`; -1 with "pg_gpio==NULL\n" on standard error without one. */
MARL_API int gpio_get_bit(uint32_t line);
MARL_API int gpio_set_bit(uint32_t line, uint32_t level);

/*
 * Reads expander input `num` (0..7) into `*out` and returns it, 0 or 1; -1, with `*out` left alone, when the
 * read fails or gives no byte. A number above 7 reads as 0 after "invalid parameter: num=%d(rang is 0-7)\n"
 * on standard error. A device that cannot be opened is reported as "open %s failed\n" on standard output,
 * here and below.
 */
MARL_API int gio_expander_read(uint32_t num, uint8_t* out);

/*
 * Sets expander output `num` (0..7) to `value` (0 or 1). The write's result, 2 on success and negative on
 * failure. Numbers out of range are sent all the same, cut to 8 bits, after
 * "invalid parameter: num=%d,value=%d\n" on standard output.
 */
MARL_API int gio_expander_write(uint32_t num, uint32_t value);

MARL_END_DECLS

#endif
