/*
 * Resolver file, MAC address and host name. No call has to come first.
 *
 * NetGetDNS(), NetGetMAC() and NetSetHostName() are safe from any thread. NetSetDNS() takes no lock, so
 * callers take turns; for NetSetMAC() the rules of __set_armboot_para() (libmarl/env.h) hold.
 *
 * Messages go to standard error, with two exceptions: the system error of the DNS calls has its prefix
 * "[libmarl] [libmarl] " on standard output, where most of what the boot environment prints for NetSetMAC()
 * goes too.
 */
#ifndef LIBMARL_NET_IDENTITY_H
#define LIBMARL_NET_IDENTITY_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * The two DNS servers of /mnt/mtd/Config/resolv.conf (resolv.conf(5)), into buffers of 16 bytes or more: the
 * first line's and the second line's. A line that is no "nameserver" line leaves its buffer alone. Without
 * the file both are the default public server. 0, or -1 for a missing or, with a message, a short buffer, and
 * for a file that is there but cannot be opened or read (system error "fopen resolv.conf"): both buffers are
 * left alone then.
 */
MARL_API int NetGetDNS(char* primary, int plen, char* secondary, int slen);

/*
 * Writes the resolver file anew, as safely as a network file (libmarl/network.h); a null server has no line,
 * an empty one a line without address. 0, or -1 for a server with blanks or control characters or of more
 * than 51 characters, or when the file cannot be opened (system error "fopen resolv.conf") or written: it is
 * as it was then.
 */
MARL_API int NetSetDNS(const char* primary, const char* secondary);

/*
 * The MAC address of a running interface, "xx:xx:xx:xx:xx:xx" in lower case, cut to `n` bytes (from 1) with
 * its NUL. 0, or negative for a name without index ("eth0", "eth2", "ppp0" and "lo" have one) or a failed
 * request ("SIOCGIFHWADDR,%s\n").
 */
MARL_API int NetGetMAC(const char* name, char* out, int n);

/*
 * Stores a MAC address, any text, as `ethaddr` in the boot environment, for the next start; "eth0" and "eth2"
 * are accepted and store the same variable. The result of __set_armboot_para() (libmarl/env.h), or negative.
 */
MARL_API int NetSetMAC(const char* name, const char* mac);

/*
 * Runs the shell command "hostname NAME", the whole of it cut to 63 characters, and returns the status of
 * system(3). A name with anything but letters, digits, '-' and '.' (RFC 1123), an empty one and one that
 * begins with '-' is refused with -1 before a shell is started, so that nobody runs a command through it.
 */
MARL_API int NetSetHostName(const char* name);

MARL_END_DECLS

#endif
