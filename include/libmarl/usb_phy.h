/*
 * Direct accesses to registers and memory through /dev/mem: the SoC's USB PHY, and how the previous run of
 * the board ended.
 *
 * usb_phy_set_state() and get_restart_kind() open /dev/mem themselves; mem_open() need not come first, and
 * mem_close() ends what usb_phy_set_state() keeps. There are no locks: one thread at a time, and not beside
 * the power cycles of libmarl/modem.h, which switch the PHY on some boards.
 */
#ifndef LIBMARL_USB_PHY_H
#define LIBMARL_USB_PHY_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_SYSTEM_MODULE_BASE 0x01C40000U

/* Opens /dev/mem unless it is open already. 0, or -1 after "open %s error\n" on standard error. */
MARL_API int mem_open(void);

/* Unmaps the registers and closes /dev/mem. The result of close(2), or -1 when it is not open. */
MARL_API int mem_close(void);

/*
 * Switches the USB PHY off (`state` 0, takes 100 us) or on (1, waits 1 to 6 ms for its clock). `base` is
 * MARL_SYSTEM_MODULE_BASE; the registers are those there in any case. 0, also when the clock does not come
 * ("USB_PPHY reset timeout\n"), or -1: another state ("state must be 0 or 1\n"), /dev/mem cannot be opened,
 * or its registers cannot be mapped at their own address ("mem failed\n"). All messages go to standard error.
 */
MARL_API int usb_phy_set_state(uint32_t base, int state);

/*
 * How the previous run ended:
 *     0   orderly
 *     1   by a reset in which a marker in memory survived
 *     2   by one in which it did not, as after a loss of power
 *    -1   it is not known, for the memory cannot be reached ("OPEN %s error\n" or "mem failed\n" on standard
 *         output)
 * or any other value that CMOS byte 1 held; a byte that cannot be read counts as 1.
 *
 * The first call of a process finds it out and stores 1, for a run that goes on, in the CMOS byte; later
 * calls repeat its answer. So only the first process that asks after a start learns whether the end was
 * orderly. The memory is looked at when the CMOS byte held 1: a marker that is missing is planted, and
 * /dev/mem is closed afterwards.
 */
MARL_API int get_restart_kind(void);

MARL_END_DECLS

#endif
