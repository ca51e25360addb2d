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
 * Set, clear and check open the file on their first use and keep their own descriptors, so a file that is
 * deleted and made anew afterwards is not noticed. The first call of each in a process belongs to one thread;
 * afterwards all are safe from any thread.
 *
 * Failures to open and map are reported on standard error as "open %s failed\n" or "mmap %s failed\n"; others
 * are silent.
 */
#ifndef LIBMARL_UPGRADE_FLAG_H
#define LIBMARL_UPGRADE_FLAG_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * 1 while an upgrade runs; 0 when none does, which a file that is absent or shorter than 4 bytes also means,
 * and any other value, after the WARN line "upgrade flag is unknown\n"; -1 when the file exists but cannot be
 * opened, mapped or read. Treat every result but 0 as a running upgrade.
 */
MARL_API int check_upgrade_map(void);

/* Creates the file (mode 0777) if needed and stores 0. 0, or -1 when it cannot be opened or written. */
MARL_API int init_upgrade_map(void);

/* Creates the file if needed and stores 1. 0, or -1 when the file cannot be opened or written. */
MARL_API int set_upgrade_map(void);

/* Stores 0; does not create the file. 0, or -1 when the file cannot be opened or written. */
MARL_API int clear_upgrade_map(void);

MARL_END_DECLS

#endif
