/**
 * @defgroup usb_devices USB devices
 * @brief Lists of all USB devices with the interfaces that their drivers made, and the search they rest on.
 *
 * Devices come from `/proc/bus/usb/devices`, interfaces from the names of the files that are found under
 * `/sys/devices/platform`.
 *
 * @par Which call
 * No call has to come first. get_usb_devs() is for all devices, get_mult3Ginfo_FromFile() for programs that
 * only care about serial interfaces; for the board's own modem see find_and_identify_3g(). dvr_find_file() is
 * the search itself, for any files.
 *
 * @par Messages
 * ERROR lines on standard output, but for the system errors `malloc`, `lstat` and `opendir`: prefix
 * `[libmarl] [libmarl] ` on standard output, text on standard error.
 *
 * @par Thread safety
 * The two listings keep where they saw devices last, unguarded: each belongs to one thread at a time.
 * dvr_find_file() is safe from any thread.
 *
 * @par Example
 * @code{.c}
 * UsbDevice devices[8];
 * int count = 8;
 * if (get_usb_devs(devices, &count) < 0) count = 0;
 * for (int i = 0; i < count; ++i) {
 *     printf("%s %s\n", devices[i].product, devices[i].interfaces[0]);
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_USB_DEVICES_H
#define LIBMARL_USB_DEVICES_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_USB_INTERFACES_MAX 9  /**< interfaces of a device that are kept */
#define MARL_USB_INTERFACE_SIZE 16 /**< bytes of an interface name, NUL included */

#define MARL_USB_SERIAL 0   /**< driver class of get_usb_devs(): a serial modem */
#define MARL_USB_WIRELESS 1 /**< driver class of get_usb_devs(): a wireless adapter */
#define MARL_USB_OTHER 2    /**< driver class of get_usb_devs(): any other */

#define MARL_USB_NO_MODEM 0 /**< driver class of get_mult3Ginfo_FromFile(): any other */
#define MARL_USB_MODEM 1    /**< driver class of get_mult3Ginfo_FromFile(): a serial modem */

/** A device of the two listings. */
typedef struct UsbDevice {
    char manufacturer[32]; /**< terminated, cut to 31 characters */
    char product[32];      /**< terminated, cut to 31 characters */
    uint32_t vendor_id;    /**< vendor ID */
    uint32_t product_id;   /**< product ID */
    int32_t driver_class;  /**< of the device's first interface that shows a driver */
    int32_t bus;           /**< bus number */
    int32_t level;         /**< 1 on the root hub, 2 behind another hub */
    int32_t parent;        /**< number of the hub that it is on */
    int32_t port;          /**< port of that hub, counts from 0 */
    char interfaces[MARL_USB_INTERFACES_MAX][MARL_USB_INTERFACE_SIZE]; /**< names of its interfaces */
    int32_t interface_count;                                           /**< how many there are */
    int32_t index; /**< slot, 0 to 4; -1 without interfaces under `/sys` */
} UsbDevice;

/**
 * Lists the devices that give a manufacturer and a product, root hubs (vendor 0000) left out.
 *
 * Serial modems get their "ttyUSB%d" names; wireless adapters get their "wlan%d" names or, when there are
 * none, "eth2", the board's wireless interface. Other devices that have interfaces get a slot, but no names.
 * The list is tried 5 times, 500 ms apart.
 *
 * @param devices  where they go
 * @param count    the capacity of `devices` on entry, and the number found on success; what does not fit is
 *                 left out
 * @return 0, also when a slot above 4 ended the naming of interfaces (an ERROR line says so). -1, with `*count`
 *         left alone and `devices` zero: null or negative arguments, no list, a list that is not whole or
 *         cannot be read, no memory, or a directory that cannot be read.
 */
MARL_API int get_usb_devs(UsbDevice* devices, int* count);

/**
 * The same for serial interfaces alone: every device that has some gets their "ttyUSB%d" names.
 *
 * @param devices  as in get_usb_devs()
 * @param count    as in get_usb_devs()
 * @return as get_usb_devs()
 */
MARL_API int get_mult3Ginfo_FromFile(UsbDevice* devices, int* count);

/** What dvr_find_file() looks for. No pointer may be null. */
typedef struct DvrFindRequest {
    const char* name;      /**< files whose path contains this */
    const char* directory; /**< in and below this */
    void* result;          /**< given to `deal_result` */
    int size;              /**< given to `deal_result` */

    /** Called with the path of each; a negative answer is reported in an ERROR line and the search goes on. */
    int (*deal_result)(const char* path, void* result, int size);
} DvrFindRequest;

/**
 * Searches 10 levels, the start directory being the first. A directory that matches is not entered, nor is a
 * symbolic link; what is gone by the time it is looked at is skipped, and so is a path of 4096 characters or
 * more.
 *
 * @param request  what to look for
 * @return 0, or -1: a null pointer in the request (`parameter error`), or a file or directory that could not
 *         be read (system error `lstat` or `opendir`; the rest was searched)
 */
MARL_API int dvr_find_file(const DvrFindRequest* request);

MARL_END_DECLS

/** @} */

#endif
