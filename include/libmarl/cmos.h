/**
 * @defgroup cmos CMOS bytes
 * @brief The small battery-backed memory of the real-time clock, behind `/dev/misc/rtc`.
 *
 * Bytes in use:
 *
 *   Byte  | Meaning
 *   ----- | -------
 *   1     | run marker, 0 after an orderly end
 *   27-28 | storage-bus release mark
 *   40-41 | magic of the network copy: 0xAA, 0x55
 *   42    | factory-reset mark, 'f'
 *   44-47 | eth0's address, network byte order
 *   48-51 | eth0's netmask, network byte order
 *   52-55 | eth0's gateway, network byte order
 *
 * On boards of the model `QZ-CA-KZ9-N` the device is never touched.
 *
 * @par Which call
 * readCMOS() and writeCMOS(), which open the device themselves; nobody has to call openCMOS(). For what is
 * kept there ask the calls that know it: get_restart_kind() for the run marker, NetConfigBeenReset() for the
 * reset mark, GetEthAttr() and SaveEthAttr() for the network copy.
 *
 * @par Messages
 * A device that cannot be opened is an ERROR line. Errors of the driver are not printed.
 *
 * @par Thread safety
 * writeCMOS() and readCMOS() are safe from any thread: one lock serialises the accesses of a process. Nothing
 * serialises those of different processes. Once sys_reboot() is about to reset the board the lock is never
 * free again: later calls wait for the reset, without end if it does not come. openCMOS() takes no lock, so
 * it belongs before a program starts its threads.
 *
 * @par Example
 * Whether the board was reset to its factory settings, without clearing the mark:
 * @code{.c}
 * uint8_t mark = 0;
 * if (readCMOS(42, &mark, sizeof mark) < 0) perror("CMOS");
 * printf("%s\n", mark == 'f' ? "factory reset" : "as configured");
 * @endcode
 * @{
 */
#ifndef LIBMARL_CMOS_H
#define LIBMARL_CMOS_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

#define MARL_CMOS_WRITE_MAX 127 /**< data bytes of one write */
#define MARL_CMOS_READ_MAX 64   /**< bytes of one read */

/**
 * The process's descriptor of the CMOS, which is opened read-write when there is none yet.
 *
 * @param path  the device; only looked at when it has to be opened
 * @return the descriptor, or -1 for null and, after an ERROR line, when the device cannot be opened
 */
MARL_API int openCMOS(const char* path);

/**
 * Stores bytes.
 *
 * @param offset  first byte in the CMOS, 0..255
 * @param data    the bytes
 * @param len     how many, 1..#MARL_CMOS_WRITE_MAX
 * @return the driver's result, `len` + 1 on success; 0 on the exempt model; -1 when the device cannot be
 *         opened. Null data and a length out of range are refused with -1 on every model.
 */
MARL_API int writeCMOS(uint8_t offset, const uint8_t* data, uint32_t len);

/**
 * Reads bytes. A read that fails leaves `out` alone; after one that came short, what is behind the bytes that
 * it read is not what is stored.
 *
 * @param offset  first byte in the CMOS, 0..255
 * @param out     where they go
 * @param len     how many, 1..#MARL_CMOS_READ_MAX
 * @return the driver's result, the bytes read; 0, with `out` cleared, on the exempt model; -1 when the device
 *         cannot be opened. Null `out` and a length out of range are refused with -1 on every model.
 */
MARL_API int readCMOS(uint8_t offset, uint8_t* out, uint32_t len);

MARL_END_DECLS

/** @} */

#endif
