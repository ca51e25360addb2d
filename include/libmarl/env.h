/*
 * The boot loader's environment: name=value variables in the flash partition /dev/mtd/1.
 *
 * No call has to come first: the image (0x20000 bytes) is read once per process, as a rule by the load-time
 * initialiser, and look-ups are answered from memory. A set rewrites the whole image in flash, with the
 * CRC-32 over its bytes 4..0x3FFF in front. The stored CRC is never checked, so an erased, random or
 * truncated list is read as far as it makes sense: it ends at the image's last byte at the latest, and a set
 * that finds no end of the list is an overflow.
 *
 * Of the three sets, __set_armboot_para() is the plain one; set_armboot_para() is for values that may name
 * the camera module, set_armboot_para_kv() for one "name=value" text.
 *
 * Loading is guarded and look-ups are safe from any thread, but a set belongs to one thread at a time and
 * must not run beside look-ups.
 *
 * An image that cannot be loaded makes every look-up return -1 and every set return 0 without effect; each
 * call tries again and reports "[libmarl] [libmarl] " on standard output and "open mtd" or "read mtd" with
 * the system error on standard error.
 */
#ifndef LIBMARL_ENV_H
#define LIBMARL_ENV_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_ENV_NAME_MAX 23   /* characters of a name that can be set */
#define MARL_ENV_VALUE_MAX 255 /* characters of a value that can be set */

/* Loads the image unless it is loaded. 0, or -1 when it cannot be loaded. */
MARL_API int env_init(void);

/*
 * Copies the value of the first variable called `key` into `value`, cut to `size` bytes with its NUL. 0, or
 * -1 when there is no such variable, the image cannot be loaded, an argument is null or `size` is 0.
 */
MARL_API int get_armboot_para(const char* key, char* value, uint32_t size);

/*
 * Replaces or creates a variable (it moves to the end of the list) and saves the image to flash: erase, then
 * write, 128 KiB, announced on standard output. An empty value is stored as such.
 *
 * Returns 0, whether or not the save succeeded; ERROR lines and system errors tell. A look-up afterwards
 * tells what memory holds, which may be more than flash does. Returns -1, with nothing changed, for a null
 * argument, a name that is empty, holds '=' or is longer than MARL_ENV_NAME_MAX, or a value longer than
 * MARL_ENV_VALUE_MAX. A variable that does not fit into the image is removed from memory, and flash is left
 * as it is.
 */
MARL_API int __set_armboot_para(const char* name, const char* value);

/*
 * As __set_armboot_para, but tells the video front end which camera module is fitted first: a value holding
 * "camera=Qorzo" sends 0, one holding "camera=Hitachi" sends 1 (both, in this order, when it holds both). -1
 * when /dev/davinci_vpfe cannot be opened; nothing is stored then.
 */
MARL_API int set_armboot_para(const char* name, const char* value);

/*
 * As __set_armboot_para with one "name=value" text; prints the value on standard output. -1 also for a text
 * without '='.
 */
MARL_API int set_armboot_para_kv(const char* text);

MARL_END_DECLS

#endif
