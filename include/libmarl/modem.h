/*
 * The 3G modem on the USB host port: finding it, telling which one it is, waiting for it, and power cycles.
 *
 * The modem is found in the kernel's list /proc/bus/usb/devices, directly on the port or behind a hub on the
 * board. Which of the two is a flag of the process, set by check_usb_hub_model() and by the calls that say
 * so; before that there is no hub.
 *
 * The hub flag and the modem type, which power_3g() reads, are not guarded: one thread at a time, except for
 * the power cycles among themselves. System errors are reported as "[libmarl] [libmarl] " on standard output
 * and the error on standard error. A null record is refused with -1.
 */
#ifndef LIBMARL_MODEM_H
#define LIBMARL_MODEM_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/* What a modem says of itself. Every text is terminated, and cut to its field. */
typedef struct Usb3gModule {
    char manufacturer[32];
    char product[32];
    char version[16];   /* of USB, "2.00" */
    char speed[8];      /* in Mbit/s, "480" */
    char vendor_id[16]; /* four hexadecimal digits, as the product ID */
    char product_id[16];
    char reserved[40];
} Usb3gModule;

/*
 * Reads the modem's entry of the USB list: without a hub the first device after the root hub; with one the
 * device on the hub's first port or else the one after it, and when there is just one device behind the hub,
 * the one on its first port ("QZ-TRX5-KB-A": on any port). 1, or -1: no such device, an entry that the list
 * ends within, or no list ("fopen" error). The record is all zero where it is not filled.
 */
MARL_API int find_3g_usb_device(Usb3gModule* module);

/* Sets the hub flag on a model with a USB hub on the board: 0. Any other model leaves the flag: -1. */
MARL_API int check_usb_hub_model(void);

/* check_usb_hub_model(), find_3g_usb_device() and identify_3g_modem(). 0, or -1 when no modem is found; the
 * modem type is left alone then. */
MARL_API int find_and_identify_3g(Usb3gModule* module);

/* Sets the modem type from the vendor ID and returns it: "19d2" 1, "12d1" 2, "1ab7" 3, "16d5" -1, any other
 * 4. */
MARL_API int identify_3g_modem(const Usb3gModule* module);

/* The row, 0 to 6, of the table of known modems that has this manufacturer, vendor ID and product ID; -1 when
 * none has, or after "usbModule Param NULL" on standard error. Safe from any thread. */
MARL_API int lookup_3g_module(const Usb3gModule* module);

/*
 * Waits for the modem: the USB list first, then the kernel's hot-plug events (NETLINK_KOBJECT_UEVENT), then
 * the list again. Sets the hub flag. `polls` is how often, 100 ms apart, no event may be waiting; 0 or less
 * waits without end. Events are looked at in batches, every 20 such polls or, without a limit, a second
 * after the last: the first event of a batch decides, one whose sysfs path takes more than 127 characters or
 * that does not fit what is left of 4096 bytes is dropped. On a board with a hub the event's position is
 * printed ("[libmarl] busTmp = %s------\n") and has to be "1-1.1", or on "QZ-TRX5-KB-A" "1-1.2".
 *
 * 0 with the record and the modem type set. -1 with a zero record and the type -1; system errors are reported
 * for "socket", "bind" and, an attribute of the device that cannot be read, "Open". -1 without touching the
 * type when there is no memory ("malloc").
 */
MARL_API int wait_3g_usb_device(Usb3gModule* module, int polls);

/*
 * Cycles the modem's power: off for 800 ms, or for 2 s when a modem was found before on "QZ-TRX5-KB-A" or, a
 * known one, on some models. With a modem found on "IPC-KQ3" the USB PHY is off as well meanwhile. 0 whatever
 * the lines answered. Safe from any thread: cycles follow each other.
 */
MARL_API int reset_3g(void);

/*
 * As reset_3g(), with 2 s for every modem but an unknown one on those models, and then looks every 500 ms
 * until the modem is back. 0, or -1 after an ERROR line when it is not within 60 s. Another cycle may begin
 * during that wait.
 */
MARL_API int reset_3g_and_wait(void);

/* reset_3g() after "[libmarl] inerface index  is %d\n"; any index, which selects nothing. */
MARL_API int reset_3g_ifindex(int index);
MARL_API int reset_3g_ifindex_unchecked(int index);

MARL_END_DECLS

#endif
