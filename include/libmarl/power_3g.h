/*
 * The supply of the 3G modem. Which line switches it, and which level means on, depends on the model and on
 * some models on the hardware version.
 *
 * On and off are power_3g_on() and power_3g_off(); power_3g() takes them as a number, and the calls with an
 * index are for programs that count modems. To restart a modem that hangs use reset_3g() (libmarl/modem.h),
 * which waits in between.
 *
 * The encoders KXEnAM have two switches: GPIO line 48 for modem type 3, line 5 for any other. So there the
 * modem is identified first, by find_and_identify_3g() or wait_3g_usb_device() (libmarl/modem.h). The modem
 * type and what getSystemInfo() notes (see 0 below) are read without a lock: one thread at a time, and not
 * beside those calls.
 *
 * Results:
 *    2  the line was written.
 *    0  On KXEnAM, however the write went. On boards of product type 22 or 24, which have no modem, once
 *       getSystemInfo() (libmarl/system.h) has noted that type in this process.
 *   -1  The request is out of range, or the model must not switch its modem (IPC-KR1, IPC-KR2, IPC-KR3): both
 *       silent. The model has no switch ("power_3g: unkown product model=%s\n" on standard error), as types
 *       22 and 24 until getSystemInfo() has run. The write failed.
 */
#ifndef LIBMARL_POWER_3G_H
#define LIBMARL_POWER_3G_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_3G_ON 1
#define MARL_3G_OFF 2

/* Switches the modem on or off; `request` is MARL_3G_ON or MARL_3G_OFF, anything else is refused with -1. */
MARL_API int power_3g(int request);
MARL_API int power_3g_on(void);
MARL_API int power_3g_off(void);

/* The board's hardware version; 0 after "get hwinfo failed, set 0\n" on standard error when it is unknown. */
MARL_API int power_3g_hw_version(void);

/*
 * The same with the index of the modem's interface, which selects nothing and is printed on standard output
 * ("[libmarl] inerface index  is %d\n"). A negative index is refused with -1 before anything is printed; the
 * _unchecked forms take any.
 */
MARL_API int power_3g_on_ifindex(int index);
MARL_API int power_3g_off_ifindex(int index);
MARL_API int power_3g_on_ifindex_unchecked(int index);
MARL_API int power_3g_off_ifindex_unchecked(int index);

MARL_END_DECLS

#endif
