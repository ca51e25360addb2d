/**
 * @defgroup reboot Reboot
 * @brief Resetting the board in an orderly way.
 *
 * The calls run on the caller's thread, and a reset is begun by one thread, once in a process. It ends with
 * the CMOS lock (see writeCMOS()) taken for good, so that nothing is written there after the mark of the
 * orderly end. On a board that runs on all the same, every later access of the process to the CMOS waits
 * without end, on every model: in writeCMOS() and readCMOS(), and so in a second sys_reboot(),
 * reboot_when_idle() or sync_and_reboot(), which comes as far as that mark, prints
 * `[libmarl] write reboot cmos start` as its last line and neither resets the board nor returns.
 *
 * @par Which call
 * A program that wants the board to start anew calls sync_and_reboot(). reboot_when_idle() leaves the first
 * flush out, sys_reboot() also the wait for a running upgrade: it is for whoever has asked
 * check_upgrade_map() himself, or must not wait. The command reboot(8) goes through init and leaves the mark
 * of the orderly end out. sync_and_exit() ends the program and resets nothing; sys_halt() halts.
 *
 * @par Messages
 * The steps are reported on standard output.
 *
 * @par Thread safety
 * pulse_gpio4() and sync_and_exit() are safe from any thread, the others as said above.
 *
 * @par Example
 * @code{.c}
 * printf("the new settings need a restart\n");
 * sync_and_reboot();  // does not return
 * @endcode
 * @{
 */
#ifndef LIBMARL_REBOOT_H
#define LIBMARL_REBOOT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/** GPIO line 4: low for 50 ms, then high, and 50 ms more. Takes 100 ms. Safe from any thread. */
MARL_API void pulse_gpio4(void);

/**
 * Resets the board at once: pulse_gpio4(); flushes the file systems, but on storage interfaces 2 and 3
 * (disks); switches the 3G modem off where `/proc/net/wireless` has no "eth2"; resets what the model has
 * besides (IPC-KA2, IPC-KL7); writes 0, the orderly end, to CMOS byte 1; takes the CMOS lock for good; pulls
 * GPIO line 35 low for 20 ms. Takes 1.2 to 1.8 s and the time of the flush. No failing step stops it.
 *
 * @return -1 if the board is still running afterwards. A second call in the same process never returns (see
 *         above).
 */
MARL_API int sys_reboot(void);

/**
 * Waits while check_upgrade_map() is not 0, looking every 10 s and at most 600 s, then sys_reboot(). Never
 * returns: on a board that runs on it pulls GPIO line 35 low again every 10 s.
 */
MARL_API __attribute__((noreturn)) void reboot_when_idle(void);

/** Flushes the file systems, then reboot_when_idle(). Never returns. */
MARL_API __attribute__((noreturn)) void sync_and_reboot(void);

/** Flushes the file systems and ends the process at once with status 0, without exit handlers. */
MARL_API __attribute__((noreturn)) void sync_and_exit(void);

MARL_END_DECLS

/** @} */

#endif
