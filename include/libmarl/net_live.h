/*
 * The running interfaces: address, netmask, default route, flags and MTU through the kernel's socket ioctls
 * (netdevice(7), linux/route.h), and the announcement of an address by ARP (RFC 826).
 *
 * 0 on success, -1 on failure, where the comment says nothing else. No locks; the announcing calls must not
 * run beside each other. Every socket is closed on every way out. ERROR lines go to standard output, the
 * other messages about failures to standard error.
 */
#ifndef LIBMARL_NET_LIVE_H
#define LIBMARL_NET_LIVE_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/* Sets the address, netmask or gateway (types of libmarl/network.h) of any kernel interface and brings it up.
 * An invalid address, which 255.255.255.255 counts as, is refused before any request. */
MARL_API int SetEthAttr(const char* name, int type, const char* value);

/*
 * Makes `gateway` the one default route, through the named interface; over "ppp0" a device route without
 * gateway. The default routes of all interfaces are removed first. Refused when the gateway is not in the
 * stored subnet of an Ethernet or wireless interface.
 */
MARL_API int SetGateWay(const char* name, const char* gateway);

/* The stored gateway, or address and netmask, of an interface, with "get default gateway error\n", "get
 * default ip error\n" or "get default netmask error\n" on failure; a gateway that cannot be read leaves `out`
 * empty. */
MARL_API int NetGetGateway(const char* name, char* out, int outLen);
MARL_API int NetGetEth0Gateway(char* out, int outLen);
MARL_API int NetGetIpMask(const char* name, char* ip, int ipLen, char* mask, int maskLen);
MARL_API int NetGetEth0IpMask(char* ip, int ipLen, char* mask, int maskLen);

/* 1 when `gateway`, under `mask` or else the stored netmask, is in the subnet of the interface's stored
 * address. */
MARL_API int NetSameSubnet(const char* name, const char* gateway, const char* mask);

/* Dotted text as an address in network byte order; missing fields are 0, any single character separates them,
 * null text is 0. */
MARL_API uint32_t NetStrToAddr(const char* text);

/* Digits of `base` (0: by a prefix, as strtoul does) up to the first character that is none, modulo 2^32;
 * where it stopped in `*end` unless that is null. 0 for null text. */
MARL_API uint32_t NetStrToUL(const char* text, const char** end, uint32_t base);

/* 1, reported on standard output, when the host bits of `address` under `mask` (null: no netmask) are all
 * ones. */
MARL_API int NetIsBroadcast(const char* address, const char* mask);

/* Takes an interface down and up again. */
MARL_API int ResetNetCard(const char* name);

/* The MTU in bytes; one above 1500 is refused. */
MARL_API int NetSetMTU(const char* name, int mtu);
MARL_API int NetGetMTU(const char* name, int* mtu);

/*
 * Set a value on the running interface, save it and announce the interface's address. The result is that of
 * the announcement; -1 at the first request that fails. A failing save is ignored. The address forms refuse a
 * broadcast address; NetApplyIpMask also one in the stored subnet of the board's other interface, and
 * announces nothing for "lo".
 */
MARL_API int NetApplyGateway(const char* name, const char* gateway);
MARL_API int NetApplyEth0Gateway(const char* gateway);
MARL_API int NetApplyIpMask(const char* name, const char* address, const char* mask);
MARL_API int NetApplyEth0IpMask(const char* address, const char* mask);

/*
 * Announces the stored address of an interface with one gratuitous ARP reply. 0 once the frame was handed to
 * the socket, whatever became of it there; negative for a failure before that.
 */
MARL_API int NetSendarp(const char* name);

/* Sends one such frame of 60 bytes; `address` in network byte order, `mac` of 6 bytes. Needs CAP_NET_RAW. */
MARL_API int NetSendArpFrame(const char* name, uint32_t address, const uint8_t* mac);

MARL_END_DECLS

#endif
