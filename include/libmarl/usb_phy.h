/**
 * @defgroup usb_phy USB PHY and restart kind
 * @brief Accesses through `/dev/mem`: the SoC's USB PHY, and how the previous run of the board ended.
 *
 * @par Which call
 * usb_phy_set_state() and get_restart_kind() open `/dev/mem` themselves; mem_open() need not come first, and
 * mem_close() ends what usb_phy_set_state() keeps. To restart a modem use reset_3g(), which switches the PHY
 * where the board needs it. For other physical memory there is DRV_mMapOpen().
 *
 * @par Messages
 * On standard error, but for those of get_restart_kind() itself, on standard output.
 *
 * @par Thread safety
 * There are no locks: one thread at a time, and not beside the power cycles of reset_3g() and
 * reset_3g_and_wait(), which switch the PHY on some boards.
 *
 * @par Example
 * @code{.c}
 * switch (get_restart_kind()) {
 *     case 0: puts("orderly"); break;
 *     case 1: puts("reset"); break;
 *     case 2: puts("loss of power"); break;
 *     default: puts("not known"); break;
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_USB_PHY_H
#define LIBMARL_USB_PHY_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_SYSTEM_MODULE_BASE 0x01C40000U /**< physical address of the system module's registers */

/**
 * Opens `/dev/mem` unless it is open already.
 *
 * @return 0, or -1 after `open %s error\n`
 */
MARL_API int mem_open(void);

/**
 * Unmaps the registers and closes `/dev/mem`.
 *
 * @return the result of close(2), or -1 when it is not open
 */
MARL_API int mem_close(void);

/**
 * Switches the USB PHY off, which takes 100 us, or on, which waits 1 to 6 ms for its clock.
 *
 * @param base   #MARL_SYSTEM_MODULE_BASE; the registers are those there in any case
 * @param state  0 off, 1 on
 * @return 0, also when the clock does not come (`USB_PPHY reset timeout\n`); -1 for another state
 *         (`state must be 0 or 1\n`), and when `/dev/mem` cannot be opened or its registers cannot be mapped
 *         at their own address (`mem failed\n`)
 */
MARL_API int usb_phy_set_state(uint32_t base, int state);

/**
 * How the previous run ended.
 *
 * The first call of a process finds it out and stores 1, for a run that goes on, in CMOS byte 1; later calls
 * repeat its answer. So only the first process that asks after a start learns whether the end was orderly.
 * The memory is looked at when the CMOS byte held 1: a marker that is missing is planted, and `/dev/mem` is
 * closed afterwards.
 *
 * @return
 *  - 0: orderly;
 *  - 1: by a reset in which a marker in memory survived;
 *  - 2: by one in which it did not, as after a loss of power;
 *  - -1: it is not known, for the memory cannot be reached (`OPEN %s error\n` or `mem failed\n` on standard
 *    output);
 *  - any other value that CMOS byte 1 held. A byte that cannot be read counts as 1.
 */
MARL_API int get_restart_kind(void);

MARL_END_DECLS

/** @} */

#endif
