/* What the library does before main(), and one boot parameter. No program has to call anything here. */
#ifndef LIBMARL_INIT_H
#define LIBMARL_INIT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * The load-time initialiser; it runs by itself, once, before main() and before any thread, and nothing needs
 * to call it. In a program that links the library statically it also runs before the program's constructors,
 * but for those of priority 101 and below. Reads the keyboard boot parameter, prints the library banner,
 * identifies the board (libmarl/hwid.h), a second time when a source could not be read, and creates the GPIO
 * object `pg_gpio`. When that fails it reports the failed condition on standard error and ends the process
 * with status 1, without running exit handlers.
 */
MARL_API void libmarl_init(void);

/*
 * The number of the boot parameter "qz_keyboard" in /proc/qorzo/bootpara (at most 3 characters are read), 0
 * when it is missing or no number. The file is read anew at every call; one that cannot be opened is reported
 * as "open %s failed\n" on standard error. `keyboard_type` (libmarl/hwinfo.h) holds the number of the start.
 * Safe from any thread.
 */
MARL_API int get_keyboard_bootpara(void);

MARL_END_DECLS

#endif
