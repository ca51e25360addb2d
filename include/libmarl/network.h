/**
 * @defgroup network Network: stored settings
 * @brief The settings of eth0, eth2 and ppp0 as they are kept for the next start.
 *
 * The settings are in small text files on the configuration flash, in a backup of each, and for eth0 in a third
 * copy in the CMOS bytes.
 *
 *   Interface | File, of `/mnt/mtd/Config` and, the backup, of `/mnt/backup/Config`
 *   --------- | ------------------------------------------------------------------
 *   eth0, lo  | `network`
 *   eth2      | `network2`
 *   ppp0      | `networkppp0`
 *
 * A file is never cut before it is written: the new text goes over the old one, what is left of that is cut
 * off, and it is on the flash before the backup is touched. So a power cut, a full flash or a failing write
 * leaves each copy with its old text or the new one, at worst with empty lines behind it. Files that are made
 * have the mode 0644, less the umask.
 *
 * @par Which call
 * No call has to come first. GetEthAttr() reads and SaveEthAttr() stores one value; what the running interface
 * has is left alone. SetEthAttr() sets the running interface and stores nothing; NetApplyIpMask() and
 * NetApplyGateway() do both and announce the address: they are for a program that takes a new address from
 * its user. NetConfigBeenReset(), NetGetDefaultEth() and NetSetDefaultEth() stand by themselves; the rest is
 * what reading and storing are made of.
 *
 * @par Messages
 * On standard error, but for these on standard output: the ERROR line of a CMOS device that cannot be opened,
 * `[libmarl] var=%#x\n` for a CMOS copy without its magic, and the WARN and other lines of
 * NetConfigBeenReset(). No call here reports a system error.
 *
 * @par Thread safety
 * Nothing here takes a lock or keeps state: every call opens and closes the files. Reading is safe from any
 * thread, also beside a save; callers that save take turns.
 *
 * @par Example
 * @code{.c}
 * char address[MARL_NET_VALUE_SIZE];
 * if (GetEthAttr("eth0", NET_ATTR_IP, address, sizeof address) == 0) {
 *     printf("after a restart: %s\n", address);
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_NETWORK_H
#define LIBMARL_NETWORK_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define NET_ATTR_IP 0      /**< the address; key "HOSTIP", dotted quad */
#define NET_ATTR_NETMASK 1 /**< the netmask; key "SUBMASK", dotted quad */
#define NET_ATTR_GATEWAY 2 /**< the gateway; key "GATEWAYIP", dotted quad */
#define NET_ATTR_PRIO 3    /**< the priority; key "PRIO", decimal; 0 on the default interface */

#define MARL_NET_PATH_SIZE 32  /**< bytes that hold every path of a network file */
#define MARL_NET_VALUE_SIZE 16 /**< bytes that hold every value */

/**
 * The key that a type of value is stored under.
 *
 * @param type  #NET_ATTR_IP to #NET_ATTR_PRIO
 * @param buf   where the key goes
 * @param len   bytes of `buf`, 10 at least
 * @return 0, or -1 for a short buffer or a type that does not exist
 */
MARL_API int NetAttrKeyName(int type, char* buf, int len);

/**
 * The path of the main file of an interface.
 *
 * @param index  of NetGetEthIndex(): 0, 2 or 3
 * @param buf    where the path goes
 * @param len    bytes of `buf`: 25 at least, and room for the path
 * @return 0, or -1
 */
MARL_API int NetConfigFileName(int index, char* buf, int len);

/**
 * Reads one value as text. The first of these that there is:
 *  - for eth0 and eth2, what DHCP has left in the main file (NetGetDhcpAttr());
 *  - the value in the main file, then that in the backup;
 *  - for eth0, the address in the CMOS copy; a copy whose magic is 0 is filled with the defaults;
 *  - the built-in default; as address of eth2 and ppp0 the one of two that eth0 does not have by the CMOS
 *    copy.
 *
 * @param name    "eth0", "lo" (which is the same), "eth2" or "ppp0"
 * @param type    #NET_ATTR_IP to #NET_ATTR_PRIO
 * @param out     where the text goes
 * @param outLen  bytes of `out`, 16 at least
 * @return 0, or negative for a name without index, a short buffer or a type that does not exist. -1 with `out`
 *         left alone, after `open failed for %s` with the key, when neither file gives the value and one of
 *         them is there but cannot be read: it may have the value, so the default does not stand in for it. -1
 *         with the default in `out` when the CMOS copy is needed and cannot be read or, for eth0, has a magic
 *         that is neither valid nor 0. -1 also after `NetGetEthName\n` when the default is needed and
 *         NetGetEthName() fails.
 */
MARL_API int GetEthAttr(const char* name, int type, char* out, int outLen);

/**
 * Stores one value in the main file, its backup and, for eth0's addresses, the CMOS copy, for the next start.
 * A file that cannot be written keeps its text and is not reported.
 *
 * @param name   as in GetEthAttr()
 * @param type   as in GetEthAttr()
 * @param value  one word; null stores nothing and succeeds
 * @return 0; negative for a name without index or a type that does not exist; -1 for a value that is not one
 *         word, which stores nothing, and when the CMOS copy cannot be written
 */
MARL_API int SaveEthAttr(const char* name, int type, const char* value);

/**
 * The worker of SaveEthAttr(), for a caller that knows the index.
 *
 * @param index    0, 2 or 3
 * @param pathBuf  #MARL_NET_PATH_SIZE bytes: the main path on entry, the backup path on return
 * @param type     as there
 * @param value    as there, but null is refused
 * @return as there
 */
MARL_API int SaveEthAttrByIndex(int index, char* pathBuf, int type, const char* value);

/**
 * Sets one key in one file, as "key = value". Every piece of the file (a line, or 31 characters of a longer
 * one) that contains `key` is replaced by the setting; without one it is appended, on a line of its own. A
 * file that does not exist is made, with " = = " as second line.
 *
 * @param path   the file
 * @param key    one word without '='
 * @param value  one word
 * @return 0; -1 when the file cannot be opened, read or made (`open failed for %s`), and silently for a key or
 *         value that is not one word (blanks and control characters make several or break the file; neither
 *         may be empty), a new text longer than 4095 characters, or a write that fails. The file is as it was
 *         then.
 */
MARL_API int NetConfigWriteKey(const char* path, const char* key, const char* value);

/**
 * The value that DHCP left in a file.
 *
 * @param path    the file
 * @param type    #NET_ATTR_IP to #NET_ATTR_GATEWAY
 * @param out     where the text goes
 * @param outLen  bytes of `out`, 16 at least
 * @return 0, or -1: no such file or value, DHCP not in use, or a file that cannot be read, all silent; no
 *         address by DHCP (`can not get IP by DHCP, use IP save in NETWORK\n`); another type, or a short
 *         buffer
 */
MARL_API int NetGetDhcpAttr(const char* path, int type, char* out, int outLen);

/**
 * Whether the stored configuration has to be treated as reset: after a factory reset, or on a board that was
 * never configured and whose CMOS lost its contents. The call clears the mark of the reset in the CMOS, so it
 * answers 1 once: one thread of one program asks, at its start.
 *
 * @return 1 when it has, 0 when not, -1 when the CMOS cannot be read
 */
MARL_API int NetConfigBeenReset(void);

/**
 * The name of the default interface: "eth0", or the board's second interface when eth0's stored priority is 1.
 *
 * @param out  #MARL_NET_NAME_SIZE bytes
 * @return 0, or -1
 */
MARL_API int NetGetDefaultEth(char* out);

/**
 * Stores priority 0 for the named interface and 1 for all others.
 *
 * @param name  "eth0" or "eth2"; with another one that has an index no interface gets the 0
 * @return 0, or negative at the first failure
 */
MARL_API int NetSetDefaultEth(const char* name);

/**
 * Formats an address as a dotted quad.
 *
 * @param addr  in network byte order
 * @param out   16 bytes; null is left alone
 */
MARL_API void NetIpToStr(uint32_t addr, char* out);

MARL_END_DECLS

/** @} */

#endif
