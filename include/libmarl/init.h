/**
 * @defgroup init Initialisation
 * @brief What the library does before `main`, and one boot parameter.
 *
 * @par Which call
 * None: the library initialises itself. The keyboard's number is in #keyboard_type already;
 * get_keyboard_bootpara() reads it anew.
 *
 * @par Messages
 * The library's banner and the messages of the identification (hwid_transform()) go to the console of every
 * program that links the library, before anything of its own.
 *
 * @par Thread safety
 * libmarl_init() runs before any thread exists; get_keyboard_bootpara() is safe from any thread.
 *
 * @par Example
 * A whole program; where the board has no GPIO device it ends before it has begun:
 * @code{.c}
 * printf("%.*s, keyboard %d\n", MARL_MODEL_SIZE, product_model_ptr, keyboard_type);
 * @endcode
 * @{
 */
#ifndef LIBMARL_INIT_H
#define LIBMARL_INIT_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/**
 * The load-time initialiser; it runs by itself, once, before `main` and before any thread, and nothing needs
 * to call it. In a program that links the library statically it also runs before the program's constructors,
 * but for those of priority 101 and below.
 *
 * It opens what is closed of the standard streams as `/dev/null`, reads the keyboard boot parameter, prints
 * the library banner, identifies the board (hwid_transform()), a second time when a source could not be read
 * (hwid_retry()), and creates the GPIO object #pg_gpio. When that fails it reports the failed condition on
 * standard error and ends the process with status 1, without running exit handlers.
 */
MARL_API void libmarl_init(void);

/**
 * The number of the boot parameter `qz_keyboard` in `/proc/qorzo/bootpara`, of which at most 3 characters are
 * read. The file is read anew at every call; one that cannot be opened is reported as `open %s failed\n` on
 * standard error. #keyboard_type holds the number of the start.
 *
 * @return the number, 0 when it is missing or no number
 */
MARL_API int get_keyboard_bootpara(void);

MARL_END_DECLS

/** @} */

#endif
