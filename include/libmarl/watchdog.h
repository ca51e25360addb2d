/**
 * @defgroup watchdog Watchdog
 * @brief The hardware watchdog, `/dev/misc/wdt`, for the programs that keep it fed.
 *
 * The watchdog is tied to the boot-environment switch `appauto`: where that is 0 or absent the device is never opened.
 *
 * @par Which call
 * wdt_set_period() comes first and starts the watchdog; from then on wdt_keepalive() must come at least once
 * a period, or the board resets. Where `sentrel` runs it has done the first, with a period of 25 s unless it
 * was told another, and a program only sends keep-alives. Nothing here stops the watchdog again.
 *
 * @par Messages
 * wdt_keepalive() reports on standard error, wdt_set_period() on standard output.
 *
 * @par Thread safety
 * wdt_set_period() and wdt_keepalive() belong to one thread at a time each, but they may run beside each
 * other; get_appauto() is safe from any thread.
 *
 * @par Example
 * @code{.c}
 * while (get_appauto() != 0) {
 *     wdt_keepalive();
 *     sleep(5);
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_WATCHDOG_H
#define LIBMARL_WATCHDOG_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_WDT_KEEPALIVE 4  /**< request of the driver, no argument: restart the count */
#define MARL_WDT_SET_PERIOD 5 /**< request of the driver, pointer to a signed 32-bit period in milliseconds */
#define MARL_WDT_RESUME 7     /**< request of the driver, no argument: start counting */

/**
 * The number in the boot-environment variable `appauto`. A value of 0 or more is looked up once per process, a
 * missing or negative one at every call.
 *
 * @return the number, 0 when it is absent
 */
MARL_API int get_appauto(void);

/**
 * Sends a keep-alive.
 *
 * @return 0, or -1 when `appauto` is 0 (silent) or the device cannot be opened (`open %s failed\n`). Whether
 *         the driver took it is not told.
 */
MARL_API int wdt_keepalive(void);

/**
 * Sets the period, starts the count and sends a keep-alive.
 *
 * @param period_ms  milliseconds; the driver knows the range
 * @return 0; -1 when `appauto` is 0 (silent); the negative result of a failed open (`open wdt failed\n`),
 *         set-period (`ioctl wdt period failed\n`) or resume request (`ioctl wdt resume failed\n`)
 */
MARL_API int wdt_set_period(int32_t period_ms);

MARL_END_DECLS

/** @} */

#endif
