/**
 * @defgroup proc Fields of text files
 * @brief One value out of a file whose lines hold a key, a separator and a value, as most under `/proc` do.
 *
 * @par Which call
 * There is one. The services of the library read their own files: ask get_mem_info(), NetGetDeviceState() or
 * get_keyboard_bootpara() before you read theirs.
 *
 * @par Thread safety
 * The file is read anew at every call, no heap is used, and the call is safe from any thread.
 *
 * @par Example
 * @code{.c}
 * char word[MARL_PROC_TOKEN_SIZE];
 * if (get_proc_field("/proc/meminfo", "MemFree", ':', word, NULL) == 0) {
 *     printf("%s kB are free\n", word);
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_PROC_H
#define LIBMARL_PROC_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_PROC_TOKEN_SIZE 16 /**< bytes that `token_out` of get_proc_field() must have */
#define MARL_PROC_RAW_SIZE 128  /**< bytes that `raw_out` of get_proc_field() must have */

/**
 * Reads one field of a text file.
 *
 * The first line that contains `key` anywhere is taken; longer lines are taken as pieces of 127 characters.
 * The value starts one character, the separator, after the key.
 *
 * @param path       the file
 * @param key        what to look for, at most 127 characters
 * @param sep        not looked at: whichever character stands behind the key is the separator
 * @param token_out  null, or #MARL_PROC_TOKEN_SIZE bytes: the first word of the value, cut to 15 characters,
 *                   empty when there is none
 * @param raw_out    null, or #MARL_PROC_RAW_SIZE bytes: the rest of the line as it stands, newline included,
 *                   NOT terminated: clear the buffer before the call
 * @return
 *  - 0: the field was found; in every other case the buffers are left alone;
 *  - -1: no line holds the key, the file cannot be read up to that line, or `path` or `key` is null;
 *  - -2: the file cannot be opened (`open %s failed\n` on standard error);
 *  - -22: the key has 128 characters or more (`strlen=%d\n` on standard error).
 */
MARL_API int get_proc_field(const char* path, const char* key, char sep, char* token_out, char* raw_out);

MARL_END_DECLS

/** @} */

#endif
