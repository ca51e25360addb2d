/*
 * Lists of all USB devices with the interfaces that their drivers made, and the search for files on which
 * they rest. Devices come from /proc/bus/usb/devices, interfaces from the names of the files that are found
 * under /sys/devices/platform.
 *
 * No call has to come first. get_usb_devs() is for all devices, get_mult3Ginfo_FromFile() for programs that
 * only care about serial interfaces; for the board's own modem see libmarl/modem.h. The two listings keep
 * where they saw devices last, unguarded: each belongs to one thread at a time. dvr_find_file() is safe from
 * any thread.
 *
 * Failures are ERROR lines on standard output, but for the system errors "malloc", "lstat" and "opendir":
 * prefix "[libmarl] [libmarl] " on standard output, text on standard error.
 */
#ifndef LIBMARL_USB_DEVICES_H
#define LIBMARL_USB_DEVICES_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_USB_INTERFACES_MAX 9  /* interfaces of a device that are kept */
#define MARL_USB_INTERFACE_SIZE 16 /* bytes of an interface name, NUL included */

/* Driver classes of get_usb_devs(). */
#define MARL_USB_SERIAL 0
#define MARL_USB_WIRELESS 1
#define MARL_USB_OTHER 2

/* Driver classes of get_mult3Ginfo_FromFile(). */
#define MARL_USB_NO_MODEM 0
#define MARL_USB_MODEM 1

typedef struct UsbDevice {
    char manufacturer[32]; /* terminated, cut to 31 characters, as the product */
    char product[32];
    uint32_t vendor_id;
    uint32_t product_id;
    int32_t driver_class; /* of the device's first interface that shows a driver */
    int32_t bus;
    int32_t level; /* 1 on the root hub, 2 behind another hub */
    int32_t parent;
    int32_t port; /* counts from 0 */
    char interfaces[MARL_USB_INTERFACES_MAX][MARL_USB_INTERFACE_SIZE];
    int32_t interface_count;
    int32_t index; /* slot, 0 to 4; -1 without interfaces under /sys */
} UsbDevice;

/*
 * Lists the devices that give a manufacturer and a product, root hubs (vendor 0000) left out. `*count` is the
 * capacity of `devices` on entry, and the number found on success; what does not fit is left out. Serial
 * modems get their "ttyUSB%d" names; wireless adapters get their "wlan%d" names or, when there are none,
 * "eth2", the board's wireless interface. Other devices that have interfaces get a slot, but no names.
 *
 * The list is tried 5 times, 500 ms apart. 0, also when a slot above 4 ended the naming of interfaces (an
 * ERROR line says so). -1, with `*count` left alone and `devices` zero: null or negative arguments, no list,
 * a list that is not whole or cannot be read, no memory, or a directory that cannot be read.
 */
MARL_API int get_usb_devs(UsbDevice* devices, int* count);

/* The same for serial interfaces alone: every device that has some gets their "ttyUSB%d" names. */
MARL_API int get_mult3Ginfo_FromFile(UsbDevice* devices, int* count);

/*
 * What to look for: files whose path contains `name`, in and below `directory`. `deal_result` is called
 * with the path of each, `result` and `size`; a negative answer is reported in an ERROR line and the search
 * goes on.
 */
typedef struct DvrFindRequest {
    const char* name;
    const char* directory;
    void* result;
    int size;
    int (*deal_result)(const char* path, void* result, int size);
} DvrFindRequest;

/*
 * Searches 10 levels, the start directory being the first. A directory that matches is not entered, nor is a
 * symbolic link; what is gone by the time it is looked at is skipped, and so is a path of 4096 characters or
 * more. 0, or -1: a null pointer in the request ("parameter error"), or a file or directory that could not be
 * read (system error "lstat" or "opendir"; the rest was searched).
 */
MARL_API int dvr_find_file(const DvrFindRequest* request);

MARL_END_DECLS

#endif
