/*
 * libmarl: the hardware-support library of the device.
 *
 * A program that links it finds the board identified and the GPIO object open when main() starts: the library
 * initialises itself at load time (libmarl/init.h). A board whose GPIO device is missing ends the process
 * there.
 *
 * Conventions of every call, unless its own comment says otherwise:
 *  - text in is NUL-terminated and read only; text out is NUL-terminated and never longer than the buffer;
 *  - the result is 0, a count or a value on success and negative on failure; arguments outside the contract
 *    (null pointers, lengths out of range) are refused with -1 and nothing is changed;
 *  - device files are opened at the first use with O_CLOEXEC and kept; a failed open is tried again at the
 * next call;
 *  - messages go to standard output, or to standard error where the comment says so, one write(2) a message.
 * A console that is full or gone drops them: no call blocks on it, no SIGPIPE ends the process.
 */
#ifndef LIBMARL_H
#define LIBMARL_H

#include "libmarl/cmos.h"
#include "libmarl/env.h"
#include "libmarl/export.h"
#include "libmarl/flash.h"
#include "libmarl/gpio.h"
#include "libmarl/halt.h"
#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"
#include "libmarl/init.h"
#include "libmarl/interfaces.h"
#include "libmarl/mcu.h"
#include "libmarl/modem.h"
#include "libmarl/net_identity.h"
#include "libmarl/net_live.h"
#include "libmarl/network.h"
#include "libmarl/power_3g.h"
#include "libmarl/proc.h"
#include "libmarl/reboot.h"
#include "libmarl/system.h"
#include "libmarl/upgrade_flag.h"
#include "libmarl/usb_devices.h"
#include "libmarl/usb_phy.h"
#include "libmarl/watchdog.h"

#endif
