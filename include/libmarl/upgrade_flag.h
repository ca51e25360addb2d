/*
 * The upgrade-in-progress flag: a signed 32-bit word at the start of /tmp/upgrade_ing, in native byte order,
 * shared by all processes of the device. 0: no upgrade runs; 1: one runs. A process that writes flash sets
 * it, whoever is about to reboot asks it.
 *
 * init_upgrade_map() is for the one program that starts first, once. A program that upgrades the device calls
 * set_upgrade_map() before and clear_upgrade_map() after it; a raw flash object (libmarl/flash.h) does both
 * by itself. Whoever wants to reboot calls check_upgrade_map(), or reboot_when_idle() (libmarl/reboot.h),
 * which does.
 *
 * Set, clear and check open the file on their first use and keep their own descriptors for as long as that
 * file bears the name; to one that was made anew after it was deleted, the next call moves. Only a regular
 * file will do: links are not followed, a FIFO keeps nobody waiting. All are safe from any thread.
 *
 * Failures are reported on standard error as "open %s failed\n", a file that cannot be written included, or
 * "mmap %s failed\n", one that cannot be read included.
 */
#ifndef LIBMARL_UPGRADE_FLAG_H
#define LIBMARL_UPGRADE_FLAG_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * 1 while an upgrade runs; 0 when none does, which a file that is absent also means (bytes that it lacks are
 * 0), and any other value, after the WARN line "upgrade flag is unknown\n"; -1 when the file exists but
 * cannot be opened, mapped or read. Treat every result but 0 as a running upgrade. A file that this process
 * looked at before and that has only been deleted since is asked on: the upgrade that it tells of still runs.
 */
MARL_API int check_upgrade_map(void);

/* Creates the file (mode 0777) if needed and stores 0. 0, or -1 when it cannot be opened or written. */
MARL_API int init_upgrade_map(void);

/* Creates the file if needed, also when it was deleted since, and stores 1. 0, or -1 as above. */
MARL_API int set_upgrade_map(void);

/*
 * Stores 0; does not create the file. One that this process raised the flag in and that has lost its name
 * since gets the 0 too. 0, or -1 when the file cannot be opened or written: the flag may be raised still.
 */
MARL_API int clear_upgrade_map(void);

MARL_END_DECLS

#endif
