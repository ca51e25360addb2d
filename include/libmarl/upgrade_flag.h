/**
 * @defgroup upgrade_flag Upgrade flag
 * @brief A word in `/tmp/upgrade_ing` that keeps the board from being rebooted while flash is written.
 *
 * The flag is a signed 32-bit word at the start of the file, in native byte order, shared by all processes of the
 * device. 0: no upgrade runs; 1: one runs. A process that writes flash sets it, whoever is about to reboot
 * asks it.
 *
 * The calls open the file on their first use and keep their own descriptors for as long as that file bears
 * the name; to one that was made anew after it was deleted, the next call moves. Only a regular file will do:
 * links are not followed, a FIFO keeps nobody waiting.
 *
 * @par Which call
 * init_upgrade_map() is for the one program that starts first, once: `sentrel`. A program that upgrades the
 * device calls set_upgrade_map() before and clear_upgrade_map() after it; a raw flash object
 * (createRawFlash()) does both by itself. Whoever wants to reboot calls check_upgrade_map(), or
 * reboot_when_idle(), which does.
 *
 * @par Messages
 * Failures are reported on standard error as `open %s failed\n`, a file that cannot be written included, or
 * `mmap %s failed\n`, one that cannot be read included.
 *
 * @par Thread safety
 * All are safe from any thread.
 *
 * @par Example
 * @code{.c}
 * if (set_upgrade_map() < 0) fprintf(stderr, "a reboot may come meanwhile\n");
 * int result = system("/usr/sbin/upgrade-kernel");
 * clear_upgrade_map();
 * if (result != 0) fprintf(stderr, "not upgraded\n");
 * @endcode
 * @{
 */
#ifndef LIBMARL_UPGRADE_FLAG_H
#define LIBMARL_UPGRADE_FLAG_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/**
 * Whether an upgrade runs. Treat every result but 0 as one that does.
 *
 * A file that this process looked at before and that has only been deleted since is asked on: the upgrade
 * that it tells of still runs.
 *
 * @return 1 while an upgrade runs; 0 when none does, which a file that is absent also means (bytes that it
 *         lacks are 0), and any other value, after the WARN line `upgrade flag is unknown\n`; -1 when the
 *         file exists but cannot be opened, mapped or read
 */
MARL_API int check_upgrade_map(void);

/**
 * Creates the file (mode 0777, less the umask) if needed and stores 0.
 *
 * @return 0, or -1 when it cannot be opened or written
 */
MARL_API int init_upgrade_map(void);

/**
 * Creates the file if needed, also when it was deleted since, and stores 1.
 *
 * @return 0, or -1 when it cannot be opened or written
 */
MARL_API int set_upgrade_map(void);

/**
 * Stores 0; does not create the file. One that this process raised the flag in and that has lost its name
 * since gets the 0 too.
 *
 * @return 0, or -1 when the file is absent or cannot be opened or written: the flag may be raised still
 */
MARL_API int clear_upgrade_map(void);

MARL_END_DECLS

/** @} */

#endif
