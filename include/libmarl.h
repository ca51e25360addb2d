/**
 * @page conventions Conventions
 *
 * A program that links libmarl finds the board identified and the GPIO object open when `main` starts: the
 * library initialises itself at load time (libmarl_init()), and ends the process where the GPIO device is
 * missing. Each header describes one service: which of its calls comes first, which of several to use, and
 * which threads may make them.
 *
 * @section results Results
 *
 * What holds for every call, unless its own description says otherwise:
 *  - text in is NUL-terminated and read only; text out is NUL-terminated and never longer than the buffer;
 *  - the result is 0, a count or a value on success and negative on failure; arguments outside the contract
 *    (null pointers, lengths out of range) are refused with -1 and nothing is changed;
 *  - device files are opened at the first use with O_CLOEXEC and kept; a failed open is tried again at the
 *    next call. None gets a descriptor below 3, and a standard stream that is closed when the process starts
 *    becomes `/dev/null`.
 *
 * @section messages Messages
 *
 * Messages go to standard output or, where a description says so, to standard error, one write(2) a message
 * while the console takes it. A console that is read gets every message, however slow it is. One that takes
 * nothing for 100 ms, or not all of a message within a second, is stuck: it loses that message and the
 * following ones, which wait no more, until one goes through. No signal of the console (SIGPIPE, SIGXFSZ,
 * SIGTTOU) ends or stops the process. Two forms have names in all descriptions:
 *  - an ERROR or a WARN line is coloured, goes to standard output and names its origin:
 *    `[libmarl] ERROR (source|function|line): text`;
 *  - a system error with a tag goes to both: the prefix `[libmarl] [libmarl] ` to standard output, then
 *    `tag: error text\n`, with the text of strerror(3), to standard error.
 *
 * Texts of messages are part of the interface: a program may look for them.
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
