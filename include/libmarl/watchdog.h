/*
 * The hardware watchdog, /dev/misc/wdt, for the programs that keep it fed. It is tied to the boot-environment
 * switch `appauto`: where that is 0 or absent the device is never opened.
 *
 * wdt_set_period() comes first and starts the watchdog; from then on wdt_keepalive() must come at least once
 * a period, or the board resets. Each of the two belongs to one thread at a time, but they may run beside
 * each other; get_appauto() is safe from any thread.
 */
#ifndef LIBMARL_WATCHDOG_H
#define LIBMARL_WATCHDOG_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/* Requests of the watchdog driver. */
#define MARL_WDT_KEEPALIVE 4  /* no argument: restart the count */
#define MARL_WDT_SET_PERIOD 5 /* pointer to a signed 32-bit period in milliseconds */
#define MARL_WDT_RESUME 7     /* no argument: start counting */

/*
 * The number in the boot-environment variable `appauto`, 0 when it is absent. A value of 0 or more is looked
 * up once per process, a missing or negative one at every call.
 */
MARL_API int get_appauto(void);

/*
 * Sends a keep-alive. 0, or -1 when appauto is 0 (silent) or the device cannot be opened ("open %s failed\n"
 * on standard error).
 */
MARL_API int wdt_keepalive(void);

/*
 * Sets the period in milliseconds, starts the count and sends a keep-alive. 0; -1 when appauto is 0 (silent);
 * the negative result of a failed open ("open wdt failed\n"), set-period ("ioctl wdt period failed\n") or
 * resume request ("ioctl wdt resume failed\n"), all on standard output.
 */
MARL_API int wdt_set_period(int32_t period_ms);

MARL_END_DECLS

#endif
