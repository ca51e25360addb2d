/*
 * Raw flash by absolute address: one object per process over three stores.
 *
 *   0x2000000 up to the end of the last partition, below 0x4000000   the MTD partitions, in the order of
 * /proc/mtd 0x4000000 and above                                              the FPGA flash, at the offset
 * from there on IPC-KL7 boards, when asked for                                the flash of the DM365
 * co-processor
 *
 * A write compares each sector with what is stored and rewrites only those that differ; the first partition
 * is always rewritten. While flash changes the upgrade flag (libmarl/upgrade_flag.h) is raised; the last
 * release lowers it.
 *
 * Nothing here takes a lock: the object belongs to one thread of one process. Every failure returns -1 with a
 * message and is not retried; sectors rewritten before stay, and writing the same again completes the image.
 * A range that would pass 2^32 is refused before anything is touched. An operation on a null object, one
 * without private record, or a closed one returns -1 after "%s: thiz", "%s: thiz->priv" or "%s:
 * priv->common.fd " on standard error.
 */
#ifndef LIBMARL_FLASH_H
#define LIBMARL_FLASH_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

typedef struct RawFlash RawFlash;

typedef struct RawFlashInfo {
    uint32_t count;       /* 1 */
    uint32_t size;        /* bytes */
    uint32_t sector_size; /* bytes */
} RawFlashInfo;

struct RawFlash {
    void* priv;
    int (*addref)(RawFlash* thiz);
    int (*release)(RawFlash* thiz);
    int (*getinfo)(RawFlash* thiz, RawFlashInfo* info);
    int (*read)(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len);
    int (*write)(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len);
    int (*erase)(RawFlash* thiz, uint32_t addr, uint32_t len);
    int (*skip_cmos_mark)(RawFlash* thiz);
};

/* Reads the partition table of /proc/mtd, at most 15 partitions, once; the number of partitions, or -1 when
 * it does not parse: the next call tries again. */
MARL_API int flash_init(void);

/* Creates the one object, with one reference, and opens its store: the co-processor's flash when `*mode` is 1
 * on an IPC-KL7 board, else the partitions. 0, or -1, silently when an object exists or an argument is null.
 */
MARL_API int createRawFlash(const int32_t* mode, RawFlash** out);

/* One reference more or less. The last release lowers the upgrade flag, closes and frees everything, and on a
 * board whose storage bus was released marks that in CMOS bytes 27-28 unless told not to. 0, or -1. */
MARL_API int flash_addref(RawFlash* thiz);
MARL_API int flash_release(RawFlash* thiz);

/* Makes the partition that holds `addr` current. 0, or -1 when none does. */
MARL_API int flash_map(RawFlash* thiz, uint32_t addr);

/* Sizes of the store. 0, or -1 for a null argument. */
MARL_API int flash_getinfo(RawFlash* thiz, RawFlashInfo* info);

/* Reads `len` bytes; `len`, or -1. The co-processor's flash cannot be read. */
MARL_API int flash_read(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len);

/*
 * Writes `len` bytes at a sector boundary; `len`, or -1. What a last piece shorter than a sector leaves of
 * its sector is kept as stored. In the FPGA flash `len` is a multiple of 4096 and the result any positive
 * number; for the co-processor see dm365_upgrade_write. Detaches /mnt/custom and /mnt/web at the first write
 * beyond the first partition.
 */
MARL_API int flash_write(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len);

/* Erases all sectors that the range touches, from a sector boundary on; 0, or -1. Refused for the
 * co-processor. */
MARL_API int flash_erase(RawFlash* thiz, uint32_t addr, uint32_t len);

/* Leaves the CMOS mark of the last release out from now on. 0. */
MARL_API int flash_skip_cmos_mark(RawFlash* thiz);

/*
 * The FPGA flash behind /dev/misc/spi1, in sectors of 4096 bytes. Between open and close it is in programming
 * mode. The first sector is erased at once and written when the end of the image, 0x80000, is reached; a call
 * that would reach it without a first sector to write is refused with -1 before anything is touched, like a
 * length that is no multiple of a sector.
 */
MARL_API int fpga_flash_open(void);
MARL_API int fpga_flash_read(uint8_t* buf, uint32_t len, uint32_t offset);
MARL_API int fpga_flash_write(const uint8_t* buf, uint32_t len, uint32_t offset);
MARL_API void fpga_flash_close(void);

/*
 * The firmware upgrade of the DM365 over /dev/misc/spi0. The descriptor is opened once per process; -1 after
 * "open dm6446 spi fail\n" on standard error.
 */
MARL_API int dm365_spi_open(void);

/* Probes the link up to `tries` times, 40 ms apart; `*result` is 0x6984 once two answers were right, else
 * 0xffff. */
MARL_API void dm365_spi_probe(int fd, int tries, uint32_t* result);

/* Waits for an acknowledgement: `*result` is 0x55aa (accepted), 0x7788 (send again), 0x99bb (upgrade
 * complete), or 0xffff when `tries` looks, `interval_ms` apart, saw none. */
MARL_API void dm365_wait_ack(int fd, int tries, uint32_t* result, uint32_t interval_ms);

/*
 * Sends the first 65536 bytes of `buf` at most as one checksummed frame and waits for its acknowledgement,
 * or, when it begins with "upgrade-end", the end frame. `cmd` is 0x2468; 0x1357 does nothing. The payload
 * bytes that were accepted, the 16 bytes of the end frame, 0, or -1. The first call of a process probes the
 * link (up to 10 s); the wait takes up to 6 s, for the end frame up to 100 s. The link stays in upgrade mode.
 */
MARL_API int dm365_upgrade_write(int fd, const uint8_t* buf, uint32_t len, uint32_t addr, uint16_t cmd);

MARL_END_DECLS

#endif
