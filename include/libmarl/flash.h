/*
 * Raw flash by absolute address: one object per process over three stores.
 *
 *   address                                      store
 *   0x2000000 to the end of the last partition   the MTD partitions, in the order of /proc/mtd
 *   0x4000000 and above                          the FPGA flash, at the offset from 0x4000000 on
 *   any                                          the flash of the DM365 co-processor, when that was asked for
 *
 * Order of calls: createRawFlash(), which reads the partition table itself, then the operations, either as
 * functions or through the object's pointers, then flash_release(). Nobody has to call flash_init() or
 * flash_map(). The FPGA and DM365 calls at the end are what the operations are made of, for programs that
 * drive one of those stores alone.
 *
 * A write compares each sector with what is stored and rewrites only those that differ; in the first
 * partition the range is rewritten without a look. From the first write or erase on, even one that fails,
 * the upgrade flag (libmarl/upgrade_flag.h) is raised; the last release lowers it. A flag that cannot be
 * raised is reported by set_upgrade_map() and does not stop the write.
 *
 * Nothing here takes a lock: object, FPGA flash and DM365 link belong to one thread of one process. A
 * failure is not retried; sectors rewritten before stay, and writing the same again completes the image.
 *
 * Every failure returns -1. These are silent:
 *  - a null buffer or argument, and a second object;
 *  - in the host's flash, a range that would pass 2^32 or goes on from the partitions into the FPGA
 *    flash, and a write into the first partition that goes on behind its end;
 *  - in the FPGA flash, a length that is no multiple of a sector or above INT32_MAX, a write of nothing,
 *    and one that reaches the end of the image without a first sector;
 *  - at the co-processor, flash_map(), an erase, and a link that refuses the upgrade mode; up to here all
 *    are found before any flash is changed;
 *  - in the FPGA flash, an erase that the driver refuses.
 * Every other failure is printed: those of the FPGA flash as ERROR and WARN lines, those of the
 * partitions as system errors or on standard output, those of the co-processor as its calls say. A null
 * object, one without private record and, where an operation needs the device, a closed one are reported
 * on standard error, with the operation's name, as "%s: thiz", "%s: thiz->priv" or
 * "%s: priv->common.fd "; flash_getinfo() and flash_skip_cmos_mark() print nothing.
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

/*
 * Reads the partition table of /proc/mtd, at most 15 partitions, unless it has been read, and prints it
 * on standard output. The number of partitions, or -1; then nothing of the table is kept, and the next
 * call tries again. -1 comes with a line on standard error: "open /proc/mtd failed\n" when the table
 * cannot be read to its end, the system error text for "sscanf /proc/mtd" for a row without numbers or
 * with sizes that cannot be; a table without "mtd0:" has none. createRawFlash() calls it; call it only to
 * know the number.
 */
MARL_API int flash_init(void);

/*
 * Creates the one object, with one reference, and opens its store. `*mode` chooses the store, for the
 * life of the object: 1 on an IPC-KL7 board is the co-processor's flash, and the version record
 * /mnt/mtd/dm365_version is deleted; any other number, and 1 on any other board, is the host's partitions
 * and FPGA flash.
 *
 * 0, or -1. `*out` is left alone when an object exists or an argument is null, both silent, and when
 * there is no partition table ("flash_init failed\n" on standard error); it is null when there is no
 * memory (a line on standard output) or a device cannot be opened.
 */
MARL_API int createRawFlash(const int32_t* mode, RawFlash** out);

/*
 * One reference more or less. The last release lowers the upgrade flag and closes and frees everything.
 * Where a write has found the disk on the storage bus it also marks that in CMOS bytes 27-28, unless told
 * not to. 0, or -1; a last release that could not make the mark, or could not lower the flag in three
 * tries 10 ms apart ("open %s failed\n" on standard error each), has freed the object all the same. The
 * next last release tries to lower the flag again.
 */
MARL_API int flash_addref(RawFlash* thiz);
MARL_API int flash_release(RawFlash* thiz);

/*
 * Makes the partition that holds `addr` current, as every operation on partitions does by itself. 0, or -1
 * when none does. Refused for the co-processor.
 */
MARL_API int flash_map(RawFlash* thiz, uint32_t addr);

/*
 * Sizes of the store: 16 MiB in sectors of the first partition's erase size, or for the co-processor 8
 * MiB in sectors of half of that. 0, or -1 for a null argument.
 */
MARL_API int flash_getinfo(RawFlash* thiz, RawFlashInfo* info);

/*
 * Reads `len` bytes, from within one partition or, as whole sectors from a sector boundary, from the FPGA
 * flash; `len`, or -1. The first access to the FPGA flash puts it into programming mode until the last
 * release. The co-processor's flash cannot be read.
 */
MARL_API int flash_read(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len);

/*
 * Writes `len` bytes at a sector boundary.
 *
 *   store             result on success
 *   partitions        `len`; what a last piece shorter than a sector leaves of its sector is kept as stored
 *   FPGA flash        that of fpga_flash_write(): 4096 whatever `len`, and 0 for the first sector alone
 *   co-processor      that of dm365_upgrade_write()
 *
 * A write into the first partition has to end there; one into another may go on into the next, up to the
 * end of the last. Whatever would go further is refused before anything is erased. The first write to
 * another partition detaches /mnt/custom and /mnt/web. On boards with storage interface 3 a write asks
 * GPIO line 9 first: where that is 1 the disk has the bus, and before anything is written /etc/ and /mnt/
 * are unmounted and the disk is switched off (/dev/misc/ataen).
 */
MARL_API int flash_write(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len);

/*
 * Erases all sectors that the range touches, from a sector boundary on and within one partition; 0, or -1.
 * Refused for the FPGA flash and the co-processor, whose writes erase by themselves.
 */
MARL_API int flash_erase(RawFlash* thiz, uint32_t addr, uint32_t len);

/* Leaves the CMOS mark of the last release out from now on, for the rest of the process. 0. */
MARL_API int flash_skip_cmos_mark(RawFlash* thiz);

/*
 * The FPGA flash behind /dev/misc/spi1, in sectors of 4096 bytes; the image has 0x80000. Between open and
 * close it is in programming mode. Opening it again while it is open is no error and asks the device
 * again: 0, or -1, which leaves it closed.
 *
 * Lengths and offsets are multiples of a sector. A read returns `len`. A write returns 4096, one sector,
 * whatever its length; one that brings just the first sector, 4096 bytes at offset 0, returns 0. The
 * first sector is erased at once and kept, and written when a write ends at the end of the image, so that
 * half an image never runs; a write that ends there before the first sector was given is refused. Both
 * return -1 on failure. After a write that failed the first sector has to be given anew: nothing makes
 * the rest of an image run that misses a part.
 */
MARL_API int fpga_flash_open(void);
MARL_API int fpga_flash_read(uint8_t* buf, uint32_t len, uint32_t offset);
MARL_API int fpga_flash_write(const uint8_t* buf, uint32_t len, uint32_t offset);
MARL_API void fpga_flash_close(void);

/*
 * The firmware upgrade of the DM365 over /dev/misc/spi0: open, then dm365_upgrade_write() for each piece
 * of the image and for "upgrade-end"; the probe and the wait are part of that. The descriptor is opened
 * once per process; -1 after "open dm6446 spi fail\n" on standard error.
 */
MARL_API int dm365_spi_open(void);

/*
 * Probes the link up to `tries` times, 40 ms apart; `*result` is 0x6984 once two answers were right, else
 * 0xffff. A negative `fd` is reported on standard error and leaves `*result` alone, here and below.
 */
MARL_API void dm365_spi_probe(int fd, int tries, uint32_t* result);

/*
 * Waits for an acknowledgement: `*result` is 0x55aa (accepted), 0x7788 (send again), 0x99bb (upgrade
 * complete), or 0xffff when `tries` looks, `interval_ms` apart, saw none.
 */
MARL_API void dm365_wait_ack(int fd, int tries, uint32_t* result, uint32_t interval_ms);

/*
 * Sends the first 65536 bytes of `buf` at most as one checksummed frame for the address `addr` and waits
 * for its acknowledgement, or, when `buf` begins with "upgrade-end", sends the end frame. `cmd` is
 * 0x2468; 0x1357 does nothing and returns 0, and any other is refused ("CMD WRONG !\n" on standard
 * error). When the link refuses the upgrade mode nothing is sent.
 *
 * The payload bytes that were accepted, so that the caller goes on behind them, or -1; a frame that the
 * co-processor wants again is sent up to 5 times. The end frame gives its 16 bytes; whether the
 * co-processor has confirmed it is only told by a line on standard output. Failures of the link are
 * reported on standard output ("[libmarl]: ERROR, Probe SPI...", "dm365flash: resend updata failed") or
 * standard error.
 *
 * The first call of a process probes the link (up to 10 s) and fails when it is dead; later ones go ahead.
 * The wait takes up to 6 s a frame, for the end frame 5 s to 100 s. The link stays in upgrade mode.
 */
MARL_API int dm365_upgrade_write(int fd, const uint8_t* buf, uint32_t len, uint32_t addr, uint16_t cmd);

MARL_END_DECLS

#endif
