/**
 * @defgroup flash Raw flash
 * @brief Reading, writing and erasing flash by absolute address: one object per process over three stores.
 *
 *   Address                                    | Store
 *   ------------------------------------------ | -----
 *   0x2000000 to the end of the last partition | the MTD partitions, in the order of `/proc/mtd`
 *   0x4000000 and above                        | the FPGA flash, at the offset from 0x4000000 on
 *   any                                        | the flash of the DM365 co-processor, when that was asked for
 *
 * A write compares each sector with what is stored and rewrites only those that differ; in the first
 * partition the range is rewritten without a look. Before anything is changed the upgrade flag
 * (set_upgrade_map()) is raised; the last release lowers it. A flag that cannot be raised is reported by
 * set_upgrade_map() and does not stop the write.
 *
 * @par Which call
 * createRawFlash(), which reads the partition table itself, then flash_getinfo(), flash_read(), flash_write()
 * and flash_erase(), either as functions or through the object's pointers, then flash_release(). Nobody has
 * to call flash_init() or flash_map(). A write erases what it rewrites, so flash_erase() is only for flash
 * that is to stay empty.
 * @par
 * The `mode` of createRawFlash() chooses between the host's stores (0) and the co-processor's (1). The FPGA
 * and DM365 calls at the end are what the operations are made of, for programs that drive one of those stores
 * alone: fpga_flash_open() before and fpga_flash_close() after the accesses, dm365_spi_open() before
 * dm365_upgrade_write().
 *
 * @par Results
 * Every failure returns -1. Only the lowering of the upgrade flag is tried again; sectors rewritten before
 * stay, and writing the same again completes the image: the FPGA's when that begins with its first sector.
 *
 * @par Messages
 * These failures are silent:
 *  - a null buffer or argument, and a second object;
 *  - in the host's flash, a range that would pass 2^32 or goes on from the partitions into the FPGA flash,
 *    and a write into the first partition that goes on behind its end;
 *  - in the FPGA flash, a length that is no multiple of a sector or above INT32_MAX, a write of nothing, and
 *    one that reaches the end of the image without a first sector;
 *  - at the co-processor, flash_map(), an erase, and a link that refuses the upgrade mode; up to here all are
 *    found before any flash is changed;
 *  - in the FPGA flash, an erase that the driver refuses.
 * @par
 * Every other failure is printed: those of the FPGA flash as ERROR and WARN lines, those of the partitions as
 * system errors or on standard output, those of the co-processor as its calls say. A null object, one without
 * private record and, where an operation needs the device, a closed one are reported on standard error, with
 * the operation's name, as `%s: thiz`, `%s: thiz->priv` or `%s: priv->common.fd `; flash_getinfo() and
 * flash_skip_cmos_mark() print nothing.
 *
 * @par Thread safety
 * Nothing here takes a lock: object, FPGA flash and DM365 link belong to one thread of one process.
 *
 * @par Example
 * @code{.c}
 * static uint8_t image[0x10000];  // whole sectors
 * int32_t host = 0;
 * RawFlash* flash = NULL;
 * if (createRawFlash(&host, &flash) < 0) exit(EXIT_FAILURE);
 * if (flash_write(flash, image, 0x2080000, sizeof image) < 0) puts("write it again");
 * flash_release(flash);
 * @endcode
 * @{
 */
#ifndef LIBMARL_FLASH_H
#define LIBMARL_FLASH_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

typedef struct RawFlash RawFlash;

/** Sizes of a store, from flash_getinfo(). */
typedef struct RawFlashInfo {
    uint32_t count;       /**< 1 */
    uint32_t size;        /**< bytes */
    uint32_t sector_size; /**< bytes */
} RawFlashInfo;

/**
 * The flash of a process: made by createRawFlash(), ended by the last flash_release(). The operations are in
 * the order of their slots; each takes the object first.
 */
struct RawFlash {
    void* priv;                                                                    /**< the library's own */
    int (*addref)(RawFlash* thiz);                                                 /**< flash_addref() */
    int (*release)(RawFlash* thiz);                                                /**< flash_release() */
    int (*getinfo)(RawFlash* thiz, RawFlashInfo* info);                            /**< flash_getinfo() */
    int (*read)(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len);        /**< flash_read() */
    int (*write)(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len); /**< flash_write() */
    int (*erase)(RawFlash* thiz, uint32_t addr, uint32_t len);                     /**< flash_erase() */
    int (*skip_cmos_mark)(RawFlash* thiz); /**< flash_skip_cmos_mark() */
};

/**
 * Reads the partition table of `/proc/mtd`, at most 15 partitions, unless it has been read, and prints it on
 * standard output. createRawFlash() calls it; call it only to know the number. When it fails nothing of the
 * table is kept, and the next call tries again.
 *
 * @return the number of partitions, or -1. -1 comes with a line on standard error: `open /proc/mtd failed\n`
 *         when the table cannot be read to its end, the system error text for `sscanf /proc/mtd` for a row
 *         without numbers or with sizes that cannot be; a table without "mtd0:" has none.
 */
MARL_API int flash_init(void);

/**
 * Creates the one object, with one reference, and opens its store.
 *
 * @param mode  which store, for the life of the object. 1 on an IPC-KL7 board is the co-processor's flash, and
 *              the version record `/mnt/mtd/dm365_version` is deleted; any other number, and 1 on any other
 *              board, is the host's partitions and FPGA flash.
 * @param out   where the object goes. It is left alone when an object exists or an argument is null, both
 *              silent, and when there is no partition table (`flash_init failed\n` on standard error); it is
 *              null when there is no memory (a line on standard output) or a device cannot be opened.
 * @return 0, or -1
 */
MARL_API int createRawFlash(const int32_t* mode, RawFlash** out);

/**
 * One reference more.
 *
 * @param thiz  the object
 * @return 0, or -1
 */
MARL_API int flash_addref(RawFlash* thiz);

/**
 * One reference less. The last release lowers the upgrade flag and closes and frees everything. Where a write
 * has found the disk on the storage bus it also marks that in CMOS bytes 27-28, unless told not to.
 *
 * @param thiz  the object
 * @return 0, or -1; a last release that could not make the mark, or could not lower the flag in three tries 10
 *         ms apart (`open %s failed\n` on standard error each), has freed the object all the same. The next
 *         last release tries to lower the flag again.
 */
MARL_API int flash_release(RawFlash* thiz);

/**
 * Makes the partition that holds `addr` current, as every operation on partitions does by itself. Refused for
 * the co-processor.
 *
 * @param thiz  the object
 * @param addr  absolute address
 * @return 0, or -1 when no partition holds it
 */
MARL_API int flash_map(RawFlash* thiz, uint32_t addr);

/**
 * Sizes of the store: 16 MiB in sectors of the first partition's erase size, or for the co-processor 8 MiB in
 * sectors of half of that.
 *
 * @param thiz  the object
 * @param info  where they go
 * @return 0, or -1 for a null argument
 */
MARL_API int flash_getinfo(RawFlash* thiz, RawFlashInfo* info);

/**
 * Reads from within one partition or, as whole sectors from a sector boundary, from the FPGA flash. The first
 * access to the FPGA flash puts it into programming mode until the last release. The co-processor's flash
 * cannot be read.
 *
 * @param thiz  the object
 * @param buf   where the bytes go
 * @param addr  absolute address
 * @param len   bytes
 * @return `len`, or -1
 */
MARL_API int flash_read(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len);

/**
 * Writes.
 *
 * A write into the first partition has to end there; one into another may go on into the next, up to the end
 * of the last. Whatever would go further is refused before anything is erased. The first write to another
 * partition detaches `/mnt/custom` and `/mnt/web`. On boards with storage interface 3 a write asks GPIO line
 * 9 first: where that is 1 the disk has the bus, and before anything is written `/etc/` and `/mnt/` are
 * unmounted and the disk is switched off (`/dev/misc/ataen`).
 *
 * @param thiz  the object
 * @param buf   the bytes
 * @param addr  absolute address of a sector's start
 * @param len   bytes; what a last piece shorter than a sector leaves of its sector in a partition is kept as
 *              stored
 * @return
 *  - in the partitions `len`;
 *  - in the FPGA flash that of fpga_flash_write(): 4096 whatever `len`, and 0 for the first sector alone;
 *  - at the co-processor that of dm365_upgrade_write();
 *  - -1 for every failure.
 */
MARL_API int flash_write(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len);

/**
 * Erases all sectors that the range touches. Refused for the FPGA flash and the co-processor, whose writes
 * erase by themselves.
 *
 * @param thiz  the object
 * @param addr  absolute address of a sector's start
 * @param len   bytes, within one partition
 * @return 0, or -1
 */
MARL_API int flash_erase(RawFlash* thiz, uint32_t addr, uint32_t len);

/**
 * Leaves the CMOS mark of the last release out from now on, for the rest of the process.
 *
 * @param thiz  not looked at
 * @return 0
 */
MARL_API int flash_skip_cmos_mark(RawFlash* thiz);

/**
 * Opens the FPGA flash behind `/dev/misc/spi1`, which has sectors of 4096 bytes and an image of 0x80000.
 * Between open and close it is in programming mode. Opening it again while it is open is no error and asks
 * the device again.
 *
 * @return 0, or -1, which leaves it closed
 */
MARL_API int fpga_flash_open(void);

/**
 * Reads the open FPGA flash.
 *
 * @param buf     where the bytes go
 * @param len     bytes, a multiple of 4096
 * @param offset  in the FPGA flash, a multiple of 4096
 * @return `len`, or -1
 */
MARL_API int fpga_flash_read(uint8_t* buf, uint32_t len, uint32_t offset);

/**
 * Writes the open FPGA flash; sectors that are right already are left alone.
 *
 * The first sector is erased at once and kept, and written when a write ends at the end of the image, so that
 * half an image never runs; a write that ends there before the first sector was given is refused. After a
 * write that failed the first sector has to be given anew: nothing makes the rest of an image run that misses
 * a part.
 *
 * @param buf     the bytes
 * @param len     bytes, a multiple of 4096
 * @param offset  in the FPGA flash, a multiple of 4096
 * @return 4096, one sector, whatever the length; 0 for one that brings just the first sector, 4096 bytes at
 *         offset 0; -1 on failure
 */
MARL_API int fpga_flash_write(const uint8_t* buf, uint32_t len, uint32_t offset);

/** Ends the programming mode of the FPGA flash and closes it; a first sector that was kept is forgotten. */
MARL_API void fpga_flash_close(void);

/**
 * Opens the DM365's link `/dev/misc/spi0`, once per process. The firmware upgrade over it is
 * dm365_upgrade_write() for each piece of the image and for "upgrade-end"; the probe and the wait are part of
 * that.
 *
 * @return the descriptor; -1 after `open dm6446 spi fail\n` on standard error
 */
MARL_API int dm365_spi_open(void);

/**
 * Probes the link.
 *
 * @param fd      of dm365_spi_open(). A negative one is reported on standard error and leaves `result` alone.
 * @param tries   looks at most, 40 ms apart
 * @param result  0x6984 once two answers were right, else 0xffff
 */
MARL_API void dm365_spi_probe(int fd, int tries, uint32_t* result);

/**
 * Waits for an acknowledgement.
 *
 * @param fd           of dm365_spi_open(). A negative one is reported on standard error and leaves `result`
 *                     alone.
 * @param tries        looks at most
 * @param result       0x55aa (accepted), 0x7788 (send again), 0x99bb (upgrade complete), or 0xffff when no
 *                     look saw any of them
 * @param interval_ms  milliseconds between looks
 */
MARL_API void dm365_wait_ack(int fd, int tries, uint32_t* result, uint32_t interval_ms);

/**
 * Sends one checksummed frame and waits for its acknowledgement, or, when `buf` begins with "upgrade-end",
 * the end frame. When the link refuses the upgrade mode nothing is sent. Failures of the link are reported on
 * standard output (`[libmarl]: ERROR, Probe SPI...`, `dm365flash: resend updata failed`) or standard error.
 *
 * The first call of a process probes the link (up to 10 s) and fails when it is dead; later ones go ahead.
 * The wait takes up to 6 s a frame, for the end frame 5 s to 100 s. The link stays in upgrade mode.
 *
 * @param fd    of dm365_spi_open()
 * @param buf   the payload, or "upgrade-end"
 * @param len   bytes of `buf`; the first 65536 are sent at most
 * @param addr  address in the co-processor's flash
 * @param cmd   0x2468; 0x1357 does nothing and returns 0, and any other is refused (`CMD WRONG !\n` on
 *              standard error)
 * @return the payload bytes that were accepted, so that the caller goes on behind them, or -1; a frame that
 *         the co-processor wants again is sent up to 5 times. The end frame gives its 16 bytes; whether the
 *         co-processor has confirmed it is only told by a line on standard output.
 */
MARL_API int dm365_upgrade_write(int fd, const uint8_t* buf, uint32_t len, uint32_t addr, uint16_t cmd);

MARL_END_DECLS

/** @} */

#endif
