/**
 * @defgroup net_identity DNS, MAC address and host name
 * @brief The resolver file, the MAC address of now and of the next start, and the host name.
 *
 * @par Which call
 * No call has to come first. NetGetMAC() tells what a running interface has; NetSetMAC() is for the next start
 * and leaves the running one alone. NetSetHostName() is for this run: nothing stores the name.
 *
 * @par Messages
 * On standard error, with two exceptions: the system error of the DNS calls has its prefix
 * `[libmarl] [libmarl] ` on standard output, where most of what the boot environment prints for NetSetMAC()
 * goes too.
 *
 * @par Thread safety
 * NetGetDNS(), NetGetMAC() and NetSetHostName() are safe from any thread. NetSetDNS() takes no lock, so
 * callers take turns; for NetSetMAC() the rules of __set_armboot_para() hold.
 *
 * @par Example
 * @code{.c}
 * char mac[18];
 * if (NetGetMAC("eth0", mac, sizeof mac) == 0) printf("%s\n", mac);
 * if (NetSetDNS("192.168.1.1", NULL) < 0) fprintf(stderr, "the servers are as they were\n");
 * @endcode
 * @{
 */
#ifndef LIBMARL_NET_IDENTITY_H
#define LIBMARL_NET_IDENTITY_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/**
 * The two DNS servers of `/mnt/mtd/Config/resolv.conf` (resolv.conf(5)): the first line's and the second
 * line's. A line that is no "nameserver" line leaves its buffer alone. Without the file both are the default
 * public server.
 *
 * @param primary    where the first goes
 * @param plen       bytes of `primary`, 16 at least
 * @param secondary  where the second goes
 * @param slen       bytes of `secondary`, 16 at least
 * @return 0, or -1 for a missing or, with a message, a short buffer, and for a file that is there but cannot
 *         be opened or read (system error `fopen resolv.conf`): both buffers are left alone then
 */
MARL_API int NetGetDNS(char* primary, int plen, char* secondary, int slen);

/**
 * Writes the resolver file anew, as safely as a network file (SaveEthAttr()). This library's own are short: of
 * somebody else's, what stands behind its first 4096 bytes goes in a step of its own, and cannot be put back.
 *
 * @param primary    the first server; null has no line, an empty text a line without address
 * @param secondary  the second
 * @return 0, or -1 for a server with blanks or control characters or of more than 51 characters, or when the
 *         file cannot be opened (system error `fopen resolv.conf`) or written: it is as it was then
 */
MARL_API int NetSetDNS(const char* primary, const char* secondary);

/**
 * The MAC address of a running interface, "xx:xx:xx:xx:xx:xx" in lower case.
 *
 * @param name  one with an index: "eth0", "eth2", "ppp0" or "lo"
 * @param out   where the text goes, cut to fit with its NUL
 * @param n     bytes of `out`, 1 at least; 18 hold all of it
 * @return 0, or negative for a name without index or a failed request (`SIOCGIFHWADDR,%s\n`)
 */
MARL_API int NetGetMAC(const char* name, char* out, int n);

/**
 * Stores a MAC address as `ethaddr` in the boot environment, for the next start.
 *
 * @param name  "eth0" or "eth2", which store the same variable
 * @param mac   the address; any text is taken
 * @return the result of __set_armboot_para(), or negative for another name or null
 */
MARL_API int NetSetMAC(const char* name, const char* mac);

/**
 * Runs the shell command "hostname NAME", the whole of it cut to 63 characters.
 *
 * @param name  letters, digits, '-' and '.' (RFC 1123), and '_'. One with anything else, an empty one and one
 *              that begins with '-' is refused before a shell is started, so that nobody runs a command through it.
 * @return the status of system(3), or -1 for a name that is refused
 */
MARL_API int NetSetHostName(const char* name);

MARL_END_DECLS

/** @} */

#endif
