/* The network interfaces of the board, as the kernel's text files tell. */
#ifndef LIBMARL_INTERFACES_H
#define LIBMARL_INTERFACES_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * Whether /proc/net/wireless has a line for the interface `name`: 0 when it has, else the negative result of
 * get_proc_field() (libmarl/proc.h), with its messages. Safe from any thread.
 */
MARL_API int NetWirelessPresent(const char* name);

MARL_END_DECLS

#endif
