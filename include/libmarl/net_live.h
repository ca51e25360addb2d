/**
 * @defgroup net_live Network: running settings
 * @brief Address, netmask, default route, flags and MTU of the running interfaces, and their announcement.
 *
 * Settings are made by the kernel's socket ioctls (netdevice(7), `linux/route.h`), and an address is announced by
 * ARP (RFC 826).
 *
 * @par Which call
 *  - SetEthAttr() and SetGateWay() set the running interface only, until the next start;
 *  - SaveEthAttr() stores only, for the next start;
 *  - the NetApply calls do both and announce the address.
 * @par
 * A program that takes a new address from its user wants NetApplyIpMask() first and NetApplyGateway() after
 * it, because a gateway must be in the stored subnet. The NetGet calls for addresses read what is stored, not
 * what the interface has. NetApplyEth0IpMask() makes no look at the other interface's subnet.
 *
 * @par Results
 * 0 on success, -1 on failure, where the description says nothing else. Every socket is closed on every way out.
 *
 * @par Messages
 *  - Standard output: every failure of SetGateWay() and a bad type or value in SetEthAttr(), as ERROR lines,
 *    and the lines that the descriptions quote as such.
 *  - Both: system errors, which are a socket that cannot be had (but in SetGateWay()) and the refused requests
 *    of ResetNetCard() and the MTU calls; the prefix `[libmarl] [libmarl] ` goes to standard output, the text
 *    to standard error.
 *  - Standard error: the refused requests of SetEthAttr() (`set ip error\n`, `set netmask error\n`,
 *    `SIOCGIFFLAGS`, `SIOCSIFFLAGS`), and all other messages.
 *  - Nothing: null arguments, where the description says no more.
 *
 * @par Thread safety
 * No call takes a lock: calls that only read and those about text are safe from any thread, calls that set,
 * save or announce must not run beside each other.
 *
 * @par Example
 * @code{.c}
 * if (NetApplyIpMask("eth0", "192.168.1.20", "255.255.255.0") < 0 ||
 *     NetApplyGateway("eth0", "192.168.1.1") < 0) {
 *     fprintf(stderr, "the address was not changed, or only in part\n");
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_NET_LIVE_H
#define LIBMARL_NET_LIVE_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/**
 * Sets the address or netmask of a kernel interface and brings it up, or sets the gateway as SetGateWay()
 * does. Stores nothing.
 *
 * @param name   any interface of the kernel
 * @param type   #NET_ATTR_IP, #NET_ATTR_NETMASK or #NET_ATTR_GATEWAY
 * @param value  read as inet_addr(3) does; an invalid one, which 255.255.255.255 counts as, is refused before
 *               any request
 * @return 0, or -1
 */
MARL_API int SetEthAttr(const char* name, int type, const char* value);

/**
 * Makes a gateway the default route; over "ppp0" a device route without gateway. Stores nothing.
 *
 * One default route of each of those of "eth0" to "eth9" that exist is removed first, and stays so when the
 * new one is refused; routes of other interfaces, such as "ppp0", stay. A gateway outside the stored subnet
 * of "eth0" or "eth2" is refused before that (`[libmarl] Gateway and ip are in different subnet\n`).
 * `[libmarl] set success\n` when it is done; both lines on standard output.
 *
 * @param name     the interface that leads there
 * @param gateway  dotted quad; not looked at for "ppp0", but not null there either
 * @return 0, or -1
 */
MARL_API int SetGateWay(const char* name, const char* gateway);

/**
 * The stored gateway of an interface by GetEthAttr(), whose rules for buffers hold.
 *
 * @param name    the interface
 * @param out     where it goes; empty when it cannot be read
 * @param outLen  bytes of `out`, 16 at least
 * @return 0, or -1 after `get default gateway error\n` on standard error
 */
MARL_API int NetGetGateway(const char* name, char* out, int outLen);

/**
 * NetGetGateway() of "eth0".
 *
 * @param out     as there
 * @param outLen  as there
 * @return as there
 */
MARL_API int NetGetEth0Gateway(char* out, int outLen);

/**
 * The stored address and netmask of an interface by GetEthAttr(), whose rules for buffers hold.
 *
 * @param name     the interface
 * @param ip       where the address goes
 * @param ipLen    bytes of `ip`, 16 at least
 * @param mask     where the netmask goes
 * @param maskLen  bytes of `mask`, 16 at least
 * @return 0, or -1 after `get default ip error\n` or `get default netmask error\n` on standard error
 */
MARL_API int NetGetIpMask(const char* name, char* ip, int ipLen, char* mask, int maskLen);

/**
 * NetGetIpMask() of "eth0".
 *
 * @param ip       as there
 * @param ipLen    as there
 * @param mask     as there
 * @param maskLen  as there
 * @return as there
 */
MARL_API int NetGetEth0IpMask(char* ip, int ipLen, char* mask, int maskLen);

/**
 * Whether an address under a netmask equals the interface's stored address under the stored netmask. Settings
 * that cannot be read count as 0.0.0.0, after the messages of NetGetIpMask().
 *
 * @param name     the interface
 * @param gateway  the address
 * @param mask     its netmask; null is the stored one
 * @return 1 when it does, else 0
 */
MARL_API int NetSameSubnet(const char* name, const char* gateway, const char* mask);

/**
 * Dotted decimal text as an address. Missing fields are 0, any single character separates them, fields above
 * 255 keep their low 8 bits.
 *
 * @param text  the address
 * @return the address in network byte order, 0 for null text
 */
MARL_API uint32_t NetStrToAddr(const char* text);

/**
 * The number in a text: digits up to the first character that is none, modulo 2^32. No blanks and no sign are
 * skipped.
 *
 * @param text  the digits
 * @param end   where it stopped goes there, unless that is null
 * @param base  up to 16; 0: by a prefix, as strtoul(3) does
 * @return the number, 0 for null text
 */
MARL_API uint32_t NetStrToUL(const char* text, const char** end, uint32_t base);

/**
 * Whether an address is a broadcast address: the host bits under the netmask are all ones, or there are none.
 *
 * @param address  the address
 * @param mask     its netmask; without one, null, 255.255.255.255 alone is a broadcast address
 * @return 1 after `[libmarl] The ip %s is broadcast addr\n` on standard output when it is, else 0
 */
MARL_API int NetIsBroadcast(const char* address, const char* mask);

/**
 * Takes an interface down and up again.
 *
 * @param name  one with an index: "eth0", "eth2", "ppp0" or "lo"
 * @return 0, or -1
 */
MARL_API int ResetNetCard(const char* name);

/**
 * Sets the MTU.
 *
 * @param name  any interface of the kernel
 * @param mtu   bytes; above 1500 or below 0 is refused silently
 * @return 0, or -1
 */
MARL_API int NetSetMTU(const char* name, int mtu);

/**
 * Tells the MTU.
 *
 * @param name  any interface of the kernel
 * @param mtu   where it goes, in bytes
 * @return 0, or -1
 */
MARL_API int NetGetMTU(const char* name, int* mtu);

/**
 * Sets a gateway as SetGateWay() does, saves it and announces the interface's address (NetSendarp()). A
 * failing save is ignored.
 *
 * @param name     the interface
 * @param gateway  dotted quad
 * @return the result of the announcement; -1 when the gateway cannot be set
 */
MARL_API int NetApplyGateway(const char* name, const char* gateway);

/**
 * NetApplyGateway() of "eth0".
 *
 * @param gateway  as there
 * @return as there
 */
MARL_API int NetApplyEth0Gateway(const char* gateway);

/**
 * Sets address and netmask on the running interface, saves each and announces the address (NetSendarp(); not
 * of "lo"). Stops at the first request that fails: what was set and saved before stays. A failing save is
 * ignored.
 *
 * A broadcast address is refused before anything is set and, silently, one for "eth0" or for "eth2" and
 * "wlan0" that is in the stored subnet of the other one, on a board with more than one interface.
 *
 * @param name     the interface
 * @param address  dotted quad
 * @param mask     dotted quad; null sets and saves the address but gives -1
 * @return the result of the announcement, or -1
 */
MARL_API int NetApplyIpMask(const char* name, const char* address, const char* mask);

/**
 * NetApplyIpMask() of "eth0", but without a look at the subnet of the other interface.
 *
 * @param address  dotted quad
 * @param mask     dotted quad; null is refused before anything is set
 * @return as there
 */
MARL_API int NetApplyEth0IpMask(const char* address, const char* mask);

/**
 * Announces the stored address of an interface, with the MAC address that it has now, in one gratuitous ARP
 * reply.
 *
 * @param name  one with an index: "eth0", "eth2", "ppp0" or "lo"
 * @return 0 when both are known, whatever became of the frame; negative for a name without index, or after
 *         `get ip error\n` or `Can not get host MAC\n` on standard error
 */
MARL_API int NetSendarp(const char* name);

/**
 * Sends one such frame of 60 bytes. Needs CAP_NET_RAW.
 *
 * @param name     the interface, cut to 13 characters
 * @param address  the address, in network byte order
 * @param mac      the MAC address, 6 bytes
 * @return 0, or -1 after the system error `SOCK_PACKET` or `setsockopt`, or `sendto arp wrong` on standard
 *         error
 */
MARL_API int NetSendArpFrame(const char* name, uint32_t address, const uint8_t* mac);

MARL_END_DECLS

/** @} */

#endif
