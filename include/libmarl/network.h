/*
 * The stored network settings of the interfaces eth0, eth2 and ppp0: small text files on the configuration
 * flash, a backup of each, and for eth0 a third copy in the CMOS bytes.
 *
 * These calls are about what is stored, and no call has to come first. GetEthAttr() reads and SaveEthAttr()
 * stores one value; what the running interface has is left alone. SetEthAttr() (libmarl/net_live.h) sets the
 * running interface and stores nothing; NetApplyIpMask() and NetApplyGateway() there do both and announce the
 * address. NetConfigBeenReset() and the calls about the default interface stand by themselves; the rest is
 * what reading and storing are made of.
 *
 * Nothing here takes a lock or keeps state: every call opens and closes the files. Reading is safe from any
 * thread, also beside a save; callers that save take turns. A file is never cut before it is written: the new
 * text goes over the old one, what is left of that is cut off, and it is on the flash before the backup is
 * touched. So a power cut, a full flash or a failing write leaves each copy with its old text or the new one,
 * at worst with empty lines behind it. Files that are made have the mode 0644, less the umask.
 *
 * Messages go to standard error, but for these on standard output: the ERROR line of a CMOS device that
 * cannot be opened, "[libmarl] var=%#x\n" for a CMOS copy without its magic, and the WARN and other lines of
 * NetConfigBeenReset(). No call here reports a system error.
 */
#ifndef LIBMARL_NETWORK_H
#define LIBMARL_NETWORK_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/* Attribute types, and the keys that they are stored under. */
#define NET_ATTR_IP 0      /* "HOSTIP", dotted quad */
#define NET_ATTR_NETMASK 1 /* "SUBMASK", dotted quad */
#define NET_ATTR_GATEWAY 2 /* "GATEWAYIP", dotted quad */
#define NET_ATTR_PRIO 3    /* "PRIO", decimal; 0 on the default interface */

#define MARL_NET_PATH_SIZE 32  /* bytes that hold every path of a network file */
#define MARL_NET_VALUE_SIZE 16 /* bytes that hold every value */

/*
 * Copies the key of a type into `buf`, whose `len` must be 10 or more. 0, or -1 for a short buffer or a type
 * that does not exist.
 */
MARL_API int NetAttrKeyName(int type, char* buf, int len);

/*
 * Copies the path of the main file of an interface index (0, 2 or 3) into `buf`, whose `len` must be 25 or
 * more and have room for it. 0, or -1.
 */
MARL_API int NetConfigFileName(int index, char* buf, int len);

/*
 * Reads one attribute as text into `out` of `outLen` bytes (16 or more). The first of these that there is:
 *  - for eth0 and eth2, what DHCP has left in the main file (NetGetDhcpAttr());
 *  - the value in the main file, then that in the backup;
 *  - for eth0, the address in the CMOS copy; a copy whose magic is 0 is filled with the defaults;
 *  - the built-in default; as address of eth2 and ppp0 the one of two that eth0 does not have by the
 *    CMOS copy.
 *
 * 0, or negative for a name without index, a short buffer or a type that does not exist. -1 with `out` left
 * alone, after "open failed for %s" with the key, when neither file gives the value and one of them is
 * there but cannot be read: it may have the value, so the default does not stand in for it. -1 with the
 * default in `out` when the CMOS copy is needed and cannot be read or, for eth0, has a magic that is
 * neither valid nor 0.
 */
MARL_API int GetEthAttr(const char* name, int type, char* out, int outLen);

/*
 * Stores one attribute in the main file, its backup and, for eth0's addresses, the CMOS copy, for the next
 * start. A null `value` stores nothing and succeeds. 0; negative for a name without index or a type that does
 * not exist; -1 for a value that is not one word, which stores nothing, and when the CMOS copy cannot be
 * written. A file that cannot be written keeps its text and is not reported.
 */
MARL_API int SaveEthAttr(const char* name, int type, const char* value);

/*
 * The worker of SaveEthAttr(), for a caller that knows the index (0, 2 or 3): `pathBuf` (MARL_NET_PATH_SIZE
 * bytes) holds the main path on entry and the backup path on return. A null `value` is refused.
 */
MARL_API int SaveEthAttrByIndex(int index, char* pathBuf, int type, const char* value);

/*
 * Sets one key in one file, as "key = value". Every piece of the file (a line, or 31 characters of a longer
 * one) that contains `key` is replaced by the setting; without one it is appended, on a line of its own. A
 * file that does not exist is made, with " = = " as second line. 0; -1 when it cannot be opened, read or made
 * ("open failed for %s"), and silently for a key or value that is not one word (blanks and control characters
 * make several or break the file; neither may be empty, a key has no '='), a new text longer than 4095
 * characters, or a write that fails. The file is as it was then.
 */
MARL_API int NetConfigWriteKey(const char* path, const char* key, const char* value);

/*
 * The value that DHCP left in the file `path`, for types 0..2, into `out` of `outLen` bytes (16 or more). 0,
 * or -1: no such file or value, DHCP not in use, or a file that cannot be read, all silent; no address by
 * DHCP ("can not get IP by DHCP, use IP save in NETWORK\n"); another type, or a short buffer.
 */
MARL_API int NetGetDhcpAttr(const char* path, int type, char* out, int outLen);

/*
 * 1 when the stored configuration has to be treated as reset: after a factory reset, or on a board that
 * was never configured and whose CMOS lost its contents. 0 when not. -1 when the CMOS cannot be read. The
 * call clears the mark of the reset in the CMOS, so it answers 1 once: one thread of one program asks, at
 * its start.
 */
MARL_API int NetConfigBeenReset(void);

/*
 * The name of the default interface into `out` of MARL_NET_NAME_SIZE bytes: "eth0", or the board's second
 * interface when eth0's stored priority is 1. 0, or -1.
 */
MARL_API int NetGetDefaultEth(char* out);

/* Stores priority 0 for the named interface and 1 for all others. 0, or negative at the first failure. */
MARL_API int NetSetDefaultEth(const char* name);

/* Formats an address held in network byte order as a dotted quad; `out` has 16 bytes. Null is left alone. */
MARL_API void NetIpToStr(uint32_t addr, char* out);

MARL_END_DECLS

#endif
