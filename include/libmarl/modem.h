/**
 * @defgroup modem 3G modem
 * @brief The 3G modem on the USB host port: finding it, telling which one it is, waiting, and power cycles.
 *
 * The modem is found in the kernel's list `/proc/bus/usb/devices`, directly on the port or behind a hub on the
 * board. Which of the two is a flag of the process, set by check_usb_hub_model() and by the calls that say so;
 * before that there is no hub.
 *
 * @par Which call
 * The modem needs its power first, power_3g_on(). A modem that is there already is found and identified by
 * find_and_identify_3g(), one that may yet come by wait_3g_usb_device(), and one that hangs is restarted by
 * reset_3g(), or reset_3g_and_wait() where the program goes on with it. The other calls are what these are
 * made of; a program that uses find_3g_usb_device() on its own calls check_usb_hub_model() before it. Of the
 * two identifications, identify_3g_modem() tells the vendor, by which the supply is switched on some boards,
 * and lookup_3g_module() the very product. For the serial interfaces of any modem there is get_usb_devs().
 *
 * @par Messages
 * System errors have the prefix `[libmarl] [libmarl] ` on standard output and their text on standard error. A
 * null record is refused with -1.
 *
 * @par Thread safety
 * The hub flag and the modem type, which power_3g() reads, are not guarded: one thread at a time. The power
 * cycles read both, so they follow each other whichever thread they come from, but must not run beside the
 * calls that set them. lookup_3g_module() is safe from any thread.
 *
 * @par Example
 * @code{.c}
 * Usb3gModule modem;
 * power_3g_on();
 * if (wait_3g_usb_device(&modem, 300) < 0) {  // 30 s
 *     reset_3g_and_wait();
 * } else {
 *     printf("%s %s\n", modem.manufacturer, modem.product);
 * }
 * @endcode
 * @{
 */
#ifndef LIBMARL_MODEM_H
#define LIBMARL_MODEM_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/** What a modem says of itself. Every text is terminated, and cut to its field. */
typedef struct Usb3gModule {
    char manufacturer[32]; /**< maker */
    char product[32];      /**< product */
    char version[16];      /**< of USB, "2.00" */
    char speed[8];         /**< in Mbit/s, "480" */
    char vendor_id[16];    /**< four hexadecimal digits */
    char product_id[16];   /**< four hexadecimal digits */
    char reserved[40];     /**< zero */
} Usb3gModule;

/**
 * Reads the modem's entry of the USB list. Without a hub that is the first device after the root hub. With
 * one it is the first device behind the hub when that is on the hub's first port, else the second; a single
 * device on another port is the modem on `QZ-TRX5-KB-A` alone.
 *
 * @param module  where it goes; all zero where it is not filled
 * @return 1, or -1: no such device, an entry that the list ends within, or no list that can be read (system
 *         error `fopen`)
 */
MARL_API int find_3g_usb_device(Usb3gModule* module);

/**
 * Sets the hub flag on a model with a USB hub on the board.
 *
 * @return 0; -1 for any other model, which leaves the flag alone
 */
MARL_API int check_usb_hub_model(void);

/**
 * check_usb_hub_model(), find_3g_usb_device() and identify_3g_modem().
 *
 * @param module  where the modem's entry goes
 * @return 0, or -1 when no modem is found; the modem type is left alone then
 */
MARL_API int find_and_identify_3g(Usb3gModule* module);

/**
 * Sets the modem type from the vendor ID.
 *
 * @param module  as filled by find_3g_usb_device()
 * @return the type: 1 for "19d2", 2 for "12d1", 3 for "1ab7", -1 for "16d5", and 4 for any other. -1 for null,
 *         which sets nothing.
 */
MARL_API int identify_3g_modem(const Usb3gModule* module);

/**
 * Looks a modem up in the table of known ones, by manufacturer, vendor ID and product ID.
 *
 * @param module  as filled by find_3g_usb_device()
 * @return the row, 0 to 6; -1 when none has it, or for null after `usbModule Param NULL` on standard error
 */
MARL_API int lookup_3g_module(const Usb3gModule* module);

/**
 * Waits for the modem: the USB list first, then the kernel's hot-plug events (NETLINK_KOBJECT_UEVENT), then
 * the list again. Sets the hub flag. Only what the kernel itself has sent is an event.
 *
 * Events are judged in batches, after every 20 polls and the last one or, without a limit, a second after the
 * last event. The first event of a batch decides: its device is the modem, or the batch is dropped. It has to
 * have a sysfs path of at most 127 characters, none of whose names is "..". On a board with a hub its position
 * is printed (`[libmarl] busTmp = %s------\n`) and has to be "1-1.1"; on `QZ-TRX5-KB-A` "1-1.2" will do as
 * well. An event that does not fit into 4096 bytes with those before it in the batch is lost.
 *
 * @param module  where the modem's entry goes
 * @param polls   how often events are taken, 100 ms apart, however many there are; 0 or less waits without end
 * @return 0 with the record and the modem type set. -1 with a zero record and the type -1; system errors are
 *         reported for `socket`, `bind` and, where an attribute of the device cannot be read, `Open`. -1
 *         without touching the type for null and when there is no memory (`malloc`).
 */
MARL_API int wait_3g_usb_device(Usb3gModule* module, int polls);

/**
 * Cycles the modem's power: off for 800 ms, but for 2 s when a modem was found before on `QZ-TRX5-KB-A`, or a
 * known one (lookup_3g_module()) on the models that are slow to reset (IPC-KP1, IPC-KP2, IPC-KR1 to IPC-KR3,
 * IPC-KL7 to IPC-KL9, IPC-KT1). With a modem found on `IPC-KQ3` the USB PHY is off as well meanwhile
 * (usb_phy_set_state()).
 *
 * @return 0 whatever the lines answered
 */
MARL_API int reset_3g(void);

/**
 * As reset_3g(), but with 2 s for every modem that was found before, except on `IPC-KQ3` and for an unknown
 * one on the models that are slow to reset. Then it looks every 500 ms until the modem is back. Another cycle
 * may begin during that wait.
 *
 * @return 0, or -1 after an ERROR line when it is not back within 60 s
 */
MARL_API int reset_3g_and_wait(void);

/**
 * reset_3g() after `[libmarl] inerface index  is %d\n` on standard output.
 *
 * @param index  any; selects nothing
 * @return 0
 */
MARL_API int reset_3g_ifindex(int index);

/**
 * The same as reset_3g_ifindex().
 *
 * @param index  any; selects nothing
 * @return 0
 */
MARL_API int reset_3g_ifindex_unchecked(int index);

MARL_END_DECLS

/** @} */

#endif
