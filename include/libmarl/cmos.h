/*
 * The CMOS bytes: the small battery-backed memory of the real-time clock, through /dev/misc/rtc.
 *
 * Bytes in use: 1 run marker (0 after an orderly end); 27-28 storage-bus release mark; 40-41 magic of the
 * network copy (0xAA, 0x55); 42 factory-reset mark ('f'); 44-47, 48-51, 52-55 eth0's address, netmask and
 * gateway in network byte order.
 *
 * writeCMOS() and readCMOS() open the device themselves and are safe from any thread: one lock serialises the
 * accesses of a process. Nothing serialises those of different processes. Once sys_reboot()
 * (libmarl/reboot.h) is about to reset the board the lock is never free again: later calls wait for the
 * reset, without end if it does not come. On boards of the model "QZ-CA-KZ9-N" the device is never touched.
 *
 * Results are those of the driver; its errors are not printed.
 */
#ifndef LIBMARL_CMOS_H
#define LIBMARL_CMOS_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_CMOS_WRITE_MAX 127 /* data bytes of one write */
#define MARL_CMOS_READ_MAX 64   /* bytes of one read */

/*
 * The process's descriptor of the CMOS, opening `path` read-write when there is none yet. -1 after an
 * ERROR line when that fails. Nobody has to call it; it takes no lock, so it belongs before a program
 * starts its threads.
 */
MARL_API int openCMOS(const char* path);

/*
 * Stores `len` bytes (1..MARL_CMOS_WRITE_MAX) at `offset`. The driver's result, len + 1 on success; 0 on the
 * exempt model; -1 when the device cannot be opened. Null data and a length out of range are refused with -1
 * on every model.
 */
MARL_API int writeCMOS(uint8_t offset, const uint8_t* data, uint32_t len);

/*
 * Fills `out` with `len` bytes (1..MARL_CMOS_READ_MAX) from `offset`. The driver's result, the bytes read; 0,
 * with `out` cleared, on the exempt model; -1 when the device cannot be opened. A failed read leaves `out`
 * alone. Null `out` and a length out of range are refused with -1 on every model.
 */
MARL_API int readCMOS(uint8_t offset, uint8_t* out, uint32_t len);

MARL_END_DECLS

#endif
