/**
 * @defgroup env Boot environment
 * @brief The boot loader's variables, name=value, in the flash partition `/dev/mtd/1`.
 *
 * The image (0x20000 bytes) is read once per process, as a rule by the load-time initialiser, and look-ups
 * are answered from memory. A set rewrites the whole image in flash, with the CRC-32 over its bytes 4..0x3FFF
 * in front. The stored CRC is never checked, so an erased, random or truncated list is read as far as it
 * makes sense: it ends at the image's last byte at the latest, and a set that finds no end of the list is an
 * overflow.
 *
 * @par Which call
 * No call has to come first. get_armboot_para() looks up. Of the three sets, __set_armboot_para() is the
 * plain one; set_armboot_para() is for values that may name the camera module, set_armboot_para_kv() for one
 * "name=value" text. A MAC address is set by NetSetMAC(), which knows its variable.
 *
 * @par Results
 * An image that cannot be loaded makes every look-up return -1 and every set return 0 without effect; each
 * call tries again. No set reports a failed save: look the variable up again, and watch the messages.
 *
 * @par Loss of power
 * The boot loader's format has one copy. Everything is made ready before the erase and nothing is done between
 * it and the write, but power that goes from the start of the erase to the end of the write costs all
 * variables: that is the time the flash takes to erase and to program 128 KiB, on NOR flash one to a few
 * seconds, `time marl env set` tells it for a board. Set a variable only when its value
 * changes, and never from a loop.
 *
 * @par Messages
 * An image that cannot be loaded is the system error `open mtd` or `read mtd`, its prefix
 * `[libmarl] [libmarl] ` on standard output. A save is announced on standard output.
 *
 * @par Thread safety
 * Loading is guarded and look-ups are safe from any thread, but a set belongs to one thread at a time and
 * must not run beside look-ups.
 *
 * @par Example
 * @code{.c}
 * char stored[MARL_ENV_VALUE_MAX + 1];
 * __set_armboot_para("appauto", "1");
 * if (get_armboot_para("appauto", stored, sizeof stored) < 0 ||
 *     strcmp(stored, "1") != 0) {
 *     fprintf(stderr, "the watchdog stays off\n");
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_ENV_H
#define LIBMARL_ENV_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_ENV_NAME_MAX 23   /**< characters of a name that can be set */
#define MARL_ENV_VALUE_MAX 255 /**< characters of a value that can be set */

/**
 * Loads the image unless it is loaded.
 *
 * @return 0, or -1 when it cannot be loaded
 */
MARL_API int env_init(void);

/**
 * Copies the value of the first variable called `key`, cut to `size` bytes with its NUL.
 *
 * @param key    the name
 * @param value  where the value goes
 * @param size   bytes of `value`; #MARL_ENV_VALUE_MAX + 1 hold everything that can be set
 * @return 0, or -1 when there is no such variable, the image cannot be loaded, an argument is null or `size`
 *         is 0
 */
MARL_API int get_armboot_para(const char* key, char* value, uint32_t size);

/**
 * Replaces or creates a variable (it moves to the end of the list) and saves the image to flash: erase, then
 * write, 128 KiB, announced on standard output. An empty value is stored as such.
 *
 * A look-up afterwards tells what memory holds, which may be more than flash does. A variable that does not
 * fit into the image is removed from memory, and flash is left as it is.
 *
 * @param name   1..#MARL_ENV_NAME_MAX characters without '='
 * @param value  at most #MARL_ENV_VALUE_MAX characters
 * @return 0, whether or not the save succeeded; ERROR lines and the system errors `mem erase` and `write mtd`
 *         tell. -1, with nothing changed, for a null argument and a name or value out of bounds.
 */
MARL_API int __set_armboot_para(const char* name, const char* value);

/**
 * As __set_armboot_para(), but tells the video front end, `/dev/davinci_vpfe`, which camera module is fitted
 * first: a value holding "camera=Qorzo" sends 0, one holding "camera=Hitachi" sends 1 (both, in this order,
 * when it holds both).
 *
 * @param name   as there
 * @param value  as there
 * @return as there; -1, with nothing stored, also when the video front end cannot be opened
 */
MARL_API int set_armboot_para(const char* name, const char* value);

/**
 * As __set_armboot_para() with one text; prints the value on standard output.
 *
 * @param text  "name=value"
 * @return as there; -1 also for a text without '='
 */
MARL_API int set_armboot_para_kv(const char* text);

MARL_END_DECLS

/** @} */

#endif
