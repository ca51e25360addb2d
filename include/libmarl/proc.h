/* Fields of text files whose lines hold a key, a separator and a value, as most files under /proc do. */
#ifndef LIBMARL_PROC_H
#define LIBMARL_PROC_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_PROC_TOKEN_SIZE 16 /* bytes that `token_out` must have */
#define MARL_PROC_RAW_SIZE 128  /* bytes that `raw_out` must have */

/*
 * Reads one field of the text file `path`.
 *
 * The first line that contains `key` anywhere is taken; lines are read in pieces of at most 127 characters.
 * The value starts one character, the separator, after the key; the separator itself is not looked at. `key`
 * has at most 127 characters.
 *
 * token_out  null, or MARL_PROC_TOKEN_SIZE bytes: the first word of the value, cut to 15 characters, empty
 * when there is none. raw_out    null, or MARL_PROC_RAW_SIZE bytes: the rest of the line as it stands,
 * newline included, NOT terminated: clear the buffer before the call.
 *
 * Returns 0, -1 when no line holds the key, -2 when the file cannot be opened ("open %s failed\n" on standard
 * error), -22 when the key has 128 characters or more ("strlen=%d\n" on standard error). Where it does not
 * return 0 the buffers are left alone. Safe from any thread; no heap.
 */
MARL_API int get_proc_field(const char* path, const char* key, char sep, char* token_out, char* raw_out);

MARL_END_DECLS

#endif
