/*
 * The network interfaces of the board, their counters and link state, as the kernel's text files tell
 * (/proc/net/dev, /proc/net/wireless) and the Ethernet MAC driver's (/proc/net/emac_link).
 *
 * No call has to come first, and all are safe from any thread: every call reads the files anew. Of the two
 * lists, NetGetEthDevice() is for programs that handle each interface, NetGetEthName() for those that show or
 * hand on the names.
 *
 * Results are negative on failure. Names that are refused and files that cannot be opened
 * ("open %s failed\n") are reported on standard error; ERROR and WARN lines go to standard output. No call
 * here reports a system error.
 */
#ifndef LIBMARL_INTERFACES_H
#define LIBMARL_INTERFACES_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_NET_DEVICES_MAX 10 /* entries that are ever enumerated */
#define MARL_NET_NAME_SIZE 32   /* bytes of an interface name, NUL included */

typedef struct NetDeviceEntry {
    uint8_t present;  /* 1 */
    uint8_t wireless; /* 1 for "eth2", the board's wireless interface */
    char name[MARL_NET_NAME_SIZE];
} NetDeviceEntry;

typedef struct NetDeviceStats {
    uint64_t tx_bytes;
    uint64_t rx_bytes;
    uint64_t tx_packets;
    uint64_t rx_packets;
} NetDeviceStats;

/*
 * The index of an interface name: "eth0" and "lo" 0, "eth2" 2, "ppp0" 3. "eth1" gives -1; any other name
 * gives -1 after "Not support device %s\n", null after "%s :pEthName==NULL" with `caller`, the name of the
 * operation that asks.
 */
MARL_API int NetGetEthIndex(const char* name, const char* caller);

/*
 * Lists those of "eth0" to "eth9" that exist in `entries`, at most `capacity` (1..MARL_NET_DEVICES_MAX).
 * Their number, at least 1: on a board without any there is an entry for "eth0". -1 for null `entries` and
 * for a `capacity` out of range; one below 1 gets a WARN line. -1 also for a list that is there but cannot be
 * read to its end, with the message of one that cannot be opened.
 */
MARL_API int NetGetEthDevice(NetDeviceEntry* entries, int capacity);

/*
 * The names of all "eth" interfaces but "eth1", and "ppp0", each followed by "::", into `buf` of `len` bytes
 * (at least 10), as many as fit whole; their number in `*count`. "eth0" alone, after an ERROR line, when
 * /proc/net/dev cannot be opened; "eth0::" when it lists none. 0, or -1 for a null argument or, after an
 * ERROR line, a buffer too short or a list that cannot be read to its end: `buf` is empty and `*count` 0
 * then.
 */
MARL_API int NetGetEthName(char* buf, int len, int* count);

/* The counters of an interface. Its index (0, 2 or 3) on success, so that 0 is eth0's or lo's. */
MARL_API int NetGetDeviceState(const char* name, NetDeviceStats* stats);

/*
 * The link: 0 up, -1 down (or a name without index), -2 unknown. On multi-port boards the link of "eth0" is
 * up when one of its first five ports is. "eth2" is down while its line in /proc/net/wireless is missing or
 * shows the status 0; a line that is not understood is printed, "[libmarl] raw=%s\n" on standard output and
 * "sscanf" on standard error. "ppp0" and "lo" are always up.
 */
MARL_API int mii_diag(const char* name);

/*
 * Whether /proc/net/wireless has a line for the interface `name`: 0 when it has, else the negative result of
 * get_proc_field() (libmarl/proc.h), with its messages.
 */
MARL_API int NetWirelessPresent(const char* name);

MARL_END_DECLS

#endif
