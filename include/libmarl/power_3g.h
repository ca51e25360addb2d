/**
 * @defgroup power_3g 3G modem: supply
 * @brief The switch of the 3G modem's supply, whichever line and level the model has for it.
 *
 * Which line switches it, and which level means on, depends on the model and on some models on the hardware
 * version.
 *
 * @par Which call
 * On and off are power_3g_on() and power_3g_off(); power_3g() takes them as a number, and the calls with an
 * index are for programs that count modems. To restart a modem that hangs use reset_3g(), which waits in
 * between; on the recorder models the supply also hangs on power switch 25 of the microcontroller
 * (PowerControl()).
 * @par
 * The encoders KXEnAM have two switches: GPIO line 48 for modem type 3, line 5 for any other. So there the
 * modem is identified first, by find_and_identify_3g() or wait_3g_usb_device().
 *
 * @par Results
 *  - 2: the line was written.
 *  - 0: on KXEnAM, however the write went. On boards of product type 22 or 24, which have no modem, once
 *    getSystemInfo() has noted that type in this process.
 *  - -1: the request is out of range, or the model must not switch its modem (IPC-KR1, IPC-KR2, IPC-KR3):
 *    both silent. The model has no switch (`power_3g: unkown product model=%s\n`), as types 22 and 24 until
 *    getSystemInfo() has run. The write failed.
 *
 * @par Messages
 * On standard error, but for the index.
 *
 * @par Thread safety
 * The modem type and what getSystemInfo() notes are read without a lock: one thread at a time, and not beside
 * the calls that write them.
 *
 * @par Example
 * @code{.c}
 * Usb3gModule modem;
 * power_3g_on();
 * if (wait_3g_usb_device(&modem, 300) == 0) printf("%s\n", modem.product);
 * @endcode
 * @{
 */
#ifndef LIBMARL_POWER_3G_H
#define LIBMARL_POWER_3G_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_3G_ON 1  /**< power_3g(): on */
#define MARL_3G_OFF 2 /**< power_3g(): off */

/**
 * Switches the modem on or off.
 *
 * @param request  #MARL_3G_ON or #MARL_3G_OFF; anything else is refused with -1
 * @return 2, 0 or -1 (see Results)
 */
MARL_API int power_3g(int request);

/**
 * power_3g() with #MARL_3G_ON.
 *
 * @return as there
 */
MARL_API int power_3g_on(void);

/**
 * power_3g() with #MARL_3G_OFF.
 *
 * @return as there
 */
MARL_API int power_3g_off(void);

/**
 * The board's hardware version, by which some models choose the level.
 *
 * @return the version; 0 after `get hwinfo failed, set 0\n` when it is unknown
 */
MARL_API int power_3g_hw_version(void);

/**
 * power_3g_on() after `[libmarl] inerface index  is %d\n` on standard output.
 *
 * @param index  of the modem's interface; selects nothing. A negative one is refused before anything is
 *               printed.
 * @return as there, or -1 for a negative index
 */
MARL_API int power_3g_on_ifindex(int index);

/**
 * power_3g_off() after `[libmarl] inerface index  is %d\n` on standard output.
 *
 * @param index  as in power_3g_on_ifindex()
 * @return as there, or -1 for a negative index
 */
MARL_API int power_3g_off_ifindex(int index);

/**
 * power_3g_on_ifindex() for any index.
 *
 * @param index  selects nothing
 * @return as power_3g_on()
 */
MARL_API int power_3g_on_ifindex_unchecked(int index);

/**
 * power_3g_off_ifindex() for any index.
 *
 * @param index  selects nothing
 * @return as power_3g_off()
 */
MARL_API int power_3g_off_ifindex_unchecked(int index);

MARL_END_DECLS

/** @} */

#endif
