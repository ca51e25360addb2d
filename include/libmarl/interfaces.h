/**
 * @defgroup interfaces Network interfaces
 * @brief The board's interfaces, their counters and link state, as the kernel's text files tell.
 *
 * The files are `/proc/net/dev`, `/proc/net/wireless` and the Ethernet MAC driver's `/proc/net/emac_link`.
 *
 * @par Which call
 * No call has to come first. Of the two lists, NetGetEthDevice() is for programs that handle each interface,
 * NetGetEthName() for those that show or hand on the names. mii_diag() tells the link, NetGetDeviceState()
 * the counters. Addresses are elsewhere: GetEthAttr() for the stored ones, NetGetMAC() for the MAC address.
 *
 * @par Results
 * Negative on failure.
 *
 * @par Messages
 * Names that are refused and files that cannot be opened (`open %s failed\n`) are reported on standard error;
 * ERROR and WARN lines go to standard output. No call here reports a system error.
 *
 * @par Thread safety
 * All are safe from any thread: every call reads the files anew.
 *
 * @par Example
 * @code{.c}
 * NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
 * int count = NetGetEthDevice(entries, MARL_NET_DEVICES_MAX);
 * for (int i = 0; i < count; ++i) {
 *     printf("%s %s\n", entries[i].name, mii_diag(entries[i].name) == 0 ? "up" : "down");
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_INTERFACES_H
#define LIBMARL_INTERFACES_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_NET_DEVICES_MAX 10 /**< entries that are ever enumerated */
#define MARL_NET_NAME_SIZE 32   /**< bytes of an interface name, NUL included */

/** An interface of NetGetEthDevice(). */
typedef struct NetDeviceEntry {
    uint8_t present;               /**< 1 */
    uint8_t wireless;              /**< 1 for "eth2", the board's wireless interface */
    char name[MARL_NET_NAME_SIZE]; /**< the interface's name */
} NetDeviceEntry;

/** Counters of an interface since it was made, from NetGetDeviceState(). */
typedef struct NetDeviceStats {
    uint64_t tx_bytes;   /**< bytes sent */
    uint64_t rx_bytes;   /**< bytes received */
    uint64_t tx_packets; /**< packets sent */
    uint64_t rx_packets; /**< packets received */
} NetDeviceStats;

/**
 * The index of an interface name, by which its settings are stored.
 *
 * @param name    the interface
 * @param caller  the operation that asks, for the message about null
 * @return "eth0" and "lo" 0, "eth2" 2, "ppp0" 3. "eth1" gives -1; any other name gives -1 after
 *         `Not support device %s\n`, null after `%s :pEthName==NULL`.
 */
MARL_API int NetGetEthIndex(const char* name, const char* caller);

/**
 * Lists those of "eth0" to "eth9" that exist.
 *
 * @param entries   where they go
 * @param capacity  1..#MARL_NET_DEVICES_MAX
 * @return their number, at least 1: on a board without any there is an entry for "eth0". -1 for null `entries`
 *         and for a `capacity` out of range; one below 1 gets a WARN line. -1 also for a list that is there
 *         but cannot be read to its end, with the message of one that cannot be opened.
 */
MARL_API int NetGetEthDevice(NetDeviceEntry* entries, int capacity);

/**
 * The names of all "eth" interfaces but "eth1", and "ppp0", each followed by "::", as many as fit whole.
 * "eth0" alone, after an ERROR line, when `/proc/net/dev` cannot be opened; "eth0::" when it lists none.
 *
 * @param buf    where the names go
 * @param len    bytes of `buf`, 10 at least
 * @param count  where their number goes
 * @return 0, or -1 for a null argument or, after an ERROR line, a buffer too short, both of which leave `buf`
 *         alone, or a list that cannot be read to its end: `buf` is empty and `*count` 0 then
 */
MARL_API int NetGetEthName(char* buf, int len, int* count);

/**
 * The counters of an interface.
 *
 * @param name   one with an index: "eth0", "eth2", "ppp0" or "lo"
 * @param stats  where they go
 * @return its index (0, 2 or 3), so that 0 is eth0's or lo's; negative on failure
 */
MARL_API int NetGetDeviceState(const char* name, NetDeviceStats* stats);

/**
 * The link of an interface.
 *
 * On multi-port boards the link of "eth0" is up when one of its first five ports is. "eth2" is down while its
 * line in `/proc/net/wireless` is missing or shows the status 0; a line that is not understood is printed,
 * `[libmarl] raw=%s\n` on standard output and `sscanf` on standard error. "ppp0" and "lo" are always up.
 *
 * @param name  one with an index: "eth0", "eth2", "ppp0" or "lo"
 * @return 0 up, -1 down (or a name without index), -2 unknown
 */
MARL_API int mii_diag(const char* name);

/**
 * Whether `/proc/net/wireless` has a line for an interface.
 *
 * @param name  the interface
 * @return 0 when it has, else the negative result of get_proc_field(), with its messages
 */
MARL_API int NetWirelessPresent(const char* name);

MARL_END_DECLS

/** @} */

#endif
