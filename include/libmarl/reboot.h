/* Resetting the board in an orderly way. All of it runs on the caller's thread. */
#ifndef LIBMARL_REBOOT_H
#define LIBMARL_REBOOT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/* GPIO line 4: low for 50 ms, then high for 50 ms. */
MARL_API void pulse_gpio4(void);

/*
 * Prepares the hardware, flushes the file systems (not on storage interfaces 2 and 3), marks the orderly end
 * in CMOS byte 1 and resets the board with a pulse on GPIO line 35; takes about 1.3 s and reports its steps
 * on standard output. No failing step stops it. The CMOS lock stays taken. -1 if the board is still running
 * afterwards.
 */
MARL_API int sys_reboot(void);

/* Waits while a firmware upgrade runs, at most 600 s, then sys_reboot(). Never returns. */
MARL_API __attribute__((noreturn)) void reboot_when_idle(void);

/* Flushes the file systems, then reboot_when_idle(). Never returns. */
MARL_API __attribute__((noreturn)) void sync_and_reboot(void);

/* Flushes the file systems and ends the process at once with status 0, without exit handlers. */
MARL_API __attribute__((noreturn)) void sync_and_exit(void);

MARL_END_DECLS

#endif
