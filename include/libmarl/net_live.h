/*
 * The running interfaces: address, netmask, default route, flags and MTU through the kernel's socket ioctls
 * (netdevice(7), linux/route.h), and the announcement of an address by ARP (RFC 826).
 *
 * Which call: SetEthAttr() and SetGateWay() set the running interface only, SaveEthAttr() (libmarl/network.h)
 * stores only, and the NetApply calls do both and announce the address; a program that takes a new address
 * from its user wants NetApplyIpMask() first and NetApplyGateway() after it, because a gateway must be in the
 * stored subnet. The NetGet calls for addresses read what is stored, not what the interface has.
 *
 * 0 on success, -1 on failure, where the comment says nothing else. No call takes a lock: calls that only
 * read and those about text are safe from any thread, calls that set, save or announce must not run beside
 * each other. Every socket is closed on every way out.
 *
 * What is printed where:
 *  - standard output: every failure of SetGateWay() and a bad type or value in SetEthAttr(), as ERROR lines,
 *    and the lines that the comments quote as such;
 *  - both: system errors, which are a socket that cannot be had (but in SetGateWay()) and the refused
 *    requests of ResetNetCard() and the MTU calls; the prefix "[libmarl] [libmarl] " goes to standard output,
 *    the text to standard error;
 *  - standard error: the refused requests of SetEthAttr() ("set ip error\n", "set netmask error\n",
 *    "SIOCGIFFLAGS", "SIOCSIFFLAGS"), and all other messages;
 *  - nothing: null arguments, where the comment says no more.
 */
#ifndef LIBMARL_NET_LIVE_H
#define LIBMARL_NET_LIVE_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * Sets the address or netmask (types of libmarl/network.h) of any kernel interface and brings it up, or sets
 * the gateway as SetGateWay() does. The text is read as inet_addr(3) does; an invalid one, which
 * 255.255.255.255 counts as, is refused before any request. Stores nothing.
 */
MARL_API int SetEthAttr(const char* name, int type, const char* value);

/*
 * Makes `gateway` the default route, through the named interface; over "ppp0" a device route without gateway.
 * One default route of each of those of "eth0" to "eth9" that exist is removed first, and stays so when the
 * new one is refused; routes of other interfaces, such as "ppp0", stay. A gateway outside the stored subnet
 * of "eth0" or "eth2" is refused before that ("[libmarl] Gateway and ip are in different subnet\n").
 * "[libmarl] set success\n" when it is done; both lines on standard output. Stores nothing.
 */
MARL_API int SetGateWay(const char* name, const char* gateway);

/*
 * The stored gateway, or address and netmask, of an interface by GetEthAttr(), whose rules for buffers (16
 * bytes or more) hold. -1 after "get default gateway error\n", "get default ip error\n" or
 * "get default netmask error\n" on standard error; a gateway that cannot be read leaves `out` empty.
 */
MARL_API int NetGetGateway(const char* name, char* out, int outLen);
MARL_API int NetGetEth0Gateway(char* out, int outLen);
MARL_API int NetGetIpMask(const char* name, char* ip, int ipLen, char* mask, int maskLen);
MARL_API int NetGetEth0IpMask(char* ip, int ipLen, char* mask, int maskLen);

/*
 * 1 when `gateway` under `mask` equals the interface's stored address under the stored netmask, else
 * 0. A null `mask` is the stored one; settings that cannot be read count as 0.0.0.0, after the
 * messages of NetGetIpMask().
 */
MARL_API int NetSameSubnet(const char* name, const char* gateway, const char* mask);

/*
 * Dotted decimal text as an address in network byte order; missing fields are 0, any single character
 * separates them, fields above 255 keep their low 8 bits, null text is 0.
 */
MARL_API uint32_t NetStrToAddr(const char* text);

/*
 * The number in `text`: digits of `base` (up to 16; 0: by a prefix, as strtoul(3) does) up to the first
 * character that is none, modulo 2^32. Where it stopped in `*end` unless that is null. No blanks and no sign
 * are skipped. 0 for null text.
 */
MARL_API uint32_t NetStrToUL(const char* text, const char** end, uint32_t base);

/*
 * 1 after "[libmarl] The ip %s is broadcast addr\n" on standard output when the host bits of `address` under
 * `mask` are all ones, or there are none; else 0. Without a netmask, null, that is 255.255.255.255 alone.
 */
MARL_API int NetIsBroadcast(const char* address, const char* mask);

/* Takes an interface with an index ("eth0", "eth2", "ppp0", "lo") down and up again. */
MARL_API int ResetNetCard(const char* name);

/* The MTU in bytes, of any kernel interface; one above 1500 or below 0 is refused silently. */
MARL_API int NetSetMTU(const char* name, int mtu);
MARL_API int NetGetMTU(const char* name, int* mtu);

/*
 * Set a value on the running interface, save it and announce the interface's address (NetSendarp()). The
 * result is that of the announcement; -1 at the first request that fails, and what was set and saved before
 * stays. A failing save is ignored.
 *
 * The address forms refuse a broadcast address before they set anything. NetApplyIpMask() also refuses,
 * silently, an address for "eth0" or for "eth2" and "wlan0" that is in the stored subnet of the other one, on
 * a board with both; it announces nothing for "lo"; and without a `mask` it sets and saves the address but
 * returns -1.
 */
MARL_API int NetApplyGateway(const char* name, const char* gateway);
MARL_API int NetApplyEth0Gateway(const char* gateway);
MARL_API int NetApplyIpMask(const char* name, const char* address, const char* mask);
MARL_API int NetApplyEth0IpMask(const char* address, const char* mask);

/*
 * Announces the stored address of an interface, with the MAC address that it has now, in one gratuitous ARP
 * reply. 0 when both are known, whatever became of the frame; negative for a name without index, or after
 * "get ip error\n" or "Can not get host MAC\n" on standard error.
 */
MARL_API int NetSendarp(const char* name);

/*
 * Sends one such frame of 60 bytes through the interface `name` (cut to 13 characters); `address` in network
 * byte order, `mac` of 6 bytes. Needs CAP_NET_RAW. 0, or -1 after the system error "SOCK_PACKET" or
 * "setsockopt", or "sendto arp wrong" on standard error.
 */
MARL_API int NetSendArpFrame(const char* name, uint32_t address, const uint8_t* mac);

MARL_END_DECLS

#endif
