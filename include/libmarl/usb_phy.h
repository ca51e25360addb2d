/*
 * Direct accesses to registers and memory through /dev/mem: the SoC's USB PHY, and how the previous run of
 * the board ended. No locks: one thread at a time.
 */
#ifndef LIBMARL_USB_PHY_H
#define LIBMARL_USB_PHY_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_SYSTEM_MODULE_BASE 0x01C40000U

/* Opens /dev/mem unless it is open. 0, or -1 after "open %s error\n" on standard error. */
MARL_API int mem_open(void);

/* Unmaps the registers and closes /dev/mem. The result of close(2), or the descriptor when none is held. */
MARL_API int mem_close(void);

/*
 * Switches the USB PHY off (`state` 0, takes 100 us) or on (1, waits up to 7 ms for its clock; "USB_PPHY
 * reset timeout\n" on standard error when that does not come). `base` is MARL_SYSTEM_MODULE_BASE; the
 * registers are those there in any case. 0, or -1: another state ("state must be 0 or 1\n"), /dev/mem cannot
 * be opened, or its registers cannot be mapped at their own address ("mem failed\n"), all on standard error.
 */
MARL_API int usb_phy_set_state(uint32_t base, int state);

/*
 * How the previous run ended: 0 orderly, 1 by a reset in which a marker in memory survived, 2 by one in which
 * it did not, as after a loss of power; any other value that CMOS byte 1 held; -1 when the memory cannot be
 * reached ("OPEN %s error\n" or "mem failed" on standard output). A CMOS byte that cannot be read counts
 * as 1. Found out once per process, which marks the run in the CMOS byte and plants the marker.
 */
MARL_API int get_restart_kind(void);

MARL_END_DECLS

#endif
