/* Resolver file, MAC address and host name. Failures are reported on standard error. */
#ifndef LIBMARL_NET_IDENTITY_H
#define LIBMARL_NET_IDENTITY_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * The two DNS servers of /mnt/mtd/Config/resolv.conf, into buffers of 16 bytes or more; a line that is no
 * "nameserver" line leaves its buffer alone. Without the file both are the default public server. 0, or -1
 * for a short or missing buffer.
 */
MARL_API int NetGetDNS(char* primary, int plen, char* secondary, int slen);

/* Writes the resolver file anew; a null server has no line. 0, or -1 when the file cannot be opened or
 * written. */
MARL_API int NetSetDNS(const char* primary, const char* secondary);

/*
 * The MAC address of a running interface, "xx:xx:xx:xx:xx:xx" in lower case, cut to `n` bytes with its NUL.
 * 0, or negative for a name without index or a failed request.
 */
MARL_API int NetGetMAC(const char* name, char* out, int n);

/*
 * Stores a MAC address as `ethaddr` in the boot environment, for the next start; "eth0" and "eth2" are
 * accepted and store the same variable. The result of __set_armboot_para() (libmarl/env.h), or negative.
 */
MARL_API int NetSetMAC(const char* name, const char* mac);

/*
 * Runs the shell command "hostname NAME", cut to 63 characters, and returns the status of system(3). A name
 * with anything but letters, digits, '-' and '.', an empty one and one that begins with '-' is refused with
 * -1 before a shell is started (RFC 1123), so that nobody runs a command through it.
 */
MARL_API int NetSetHostName(const char* name);

MARL_END_DECLS

#endif
