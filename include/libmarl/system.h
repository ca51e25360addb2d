/**
 * @defgroup system Board services
 * @brief Shell commands, physical memory, the ARM clock, statistics, and summaries of the system.
 *
 * @par Which call
 * No call has to come first but DRV_mMapOpen(), which gives the descriptor for DRV_mMap(). get_arm_rate() is
 * the clock, read_armrate() and readReg() its two sources. get_cpu_stat() is get_cpu_usage() and
 * get_context_switches() in one. getSystemInfo() is for programs that show a board to their user; for a
 * decision ask get_dvr_info() and check_product_model(). my_system_call() tells how a command ended as
 * system(3) does, but neither blocks nor ignores signals of the caller meanwhile.
 *
 * @par Messages
 * ERROR lines and progress go to standard output; a file under `/proc` that cannot be opened is reported as
 * `open %s failed\n` on standard error. No call here reports a system error of its own.
 *
 * @par Thread safety
 * All are safe from any thread, with two exceptions: get_cpu_usage() and get_cpu_stat() share the counts of
 * the previous call, and getSystemInfo() writes a word of the process that power_3g() reads; each belongs to
 * one thread at a time.
 *
 * @par Example
 * @code{.c}
 * MemInfo memory;
 * if (get_mem_info(&memory) == 0) printf("%u kB are free\n", memory.available);
 * int status = my_system_call("ls /mnt/mtd/Config");
 * if (WIFEXITED(status) && WEXITSTATUS(status) == 0) puts("there it is");
 * @endcode
 * @{
 */
#ifndef LIBMARL_SYSTEM_H
#define LIBMARL_SYSTEM_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/**
 * Runs a command with `/bin/sh -c` and waits for it.
 *
 * The child announces itself with `[libmarl] inclild ppid=%d pid=%d \n` on standard output, if that takes it
 * at once; the command itself has the caller's streams and may wait for them. Handlers of the caller never run
 * in the child, which starts with the caller's signal mask. Where SIGCHLD is ignored it is not for as long as
 * a command runs: other children that end then stay to be waited for.
 *
 * @param command  for the shell
 * @return its wait status (waitpid(2)), or -1 for a null command or when the child cannot be made (an ERROR
 *         line) or waited for. A shell that cannot be started gives exit status 127.
 */
MARL_API int my_system_call(const char* command);

/**
 * Opens `/dev/mem`, read-write and synchronous.
 *
 * @param fd_out  where the descriptor goes, a new one each time
 * @return 0, or -1 after an ERROR line and, silently, for null
 */
MARL_API int DRV_mMapOpen(int* fd_out);

/**
 * Closes a descriptor of DRV_mMapOpen().
 *
 * @param fd  the descriptor; one below 1 is left open
 * @return 0
 */
MARL_API int DRV_mMapClose(int fd);

/**
 * Maps physical memory, shared, to be read, written and executed.
 *
 * @param fd    of DRV_mMapOpen()
 * @param phys  physical address, page-aligned
 * @param len   bytes
 * @return where it is mapped, or null after an ERROR line
 */
MARL_API void* DRV_mMap(int fd, uint32_t phys, uint32_t len);

/**
 * Unmaps what DRV_mMap() has mapped.
 *
 * @param addr  where it is mapped
 * @param len   bytes
 * @return 0, or -1 after an ERROR line
 */
MARL_API int DRV_mUnMap(void* addr, uint32_t len);

/**
 * The registers of the first PLL, as they stand.
 *
 * @param pll1_mult  where the multiplier goes
 * @param prediv     where the pre-divider goes
 * @param postdiv    where the post-divider goes
 * @param pll_div3   where the third divider goes
 * @return 0, or -1 after ERROR lines (silent for null), with nothing stored
 */
MARL_API int readReg(uint32_t* pll1_mult, uint32_t* prediv, uint32_t* postdiv, uint32_t* pll_div3);

/**
 * The boot variable `armrate`.
 *
 * @return the number in it, MHz; -1 with a line on standard output when there is none
 */
MARL_API int read_armrate(void);

/**
 * The ARM clock: the boot variable or, where that is missing or below 1, computed from the PLL registers. Says
 * on standard output where it came from.
 *
 * @return MHz; 0 when the registers cannot be read
 */
MARL_API int get_arm_rate(void);

/** Memory of the system, from get_mem_info(). */
typedef struct MemInfo {
    uint32_t total;     /**< kB */
    uint32_t available; /**< kB, free and cached */
} MemInfo;

/** Load of the processor, from get_cpu_stat(). */
typedef struct CpuStat {
    uint32_t usage;            /**< percent */
    uint32_t context_switches; /**< since boot, modulo 2^32 */
} CpuStat;

/**
 * Reads `/proc/meminfo`.
 *
 * @param info  where it goes
 * @return 0, or -1 for null and when a field is missing; the total may be set then
 */
MARL_API int get_mem_info(MemInfo* info);

/**
 * The context switches since boot.
 *
 * @return their number modulo 2^32, 0 when it cannot be read
 */
MARL_API uint32_t get_context_switches(void);

/**
 * Processor usage since the previous call of the process, the first time since boot. An idle count that steps
 * back counts as no idle time. One thread at a time.
 *
 * @return percent, 0 to 100; 0 when it cannot be read
 */
MARL_API uint32_t get_cpu_usage(void);

/**
 * get_cpu_usage() and get_context_switches(). One thread at a time.
 *
 * @param stat  where they go
 * @return 0, or -1 for null
 */
MARL_API int get_cpu_stat(CpuStat* stat);

/**
 * The device identifier: the boot variable `ID`, with a line on standard output, or when that is absent or 18
 * zeros, eth0's MAC address as of NetGetMAC().
 *
 * @param buf  where it goes
 * @param len  bytes of `buf`
 * @return 0, or -1
 */
MARL_API int get_device_id(char* buf, int len);

/** Summary of the system, from getSystemInfo(). */
typedef struct SystemInfo {
    char chip[32];        /**< name of the main chip, "unkown" for one without a name here */
    char id[32];          /**< get_device_id() */
    char type[32];        /**< product model, cut to 31 characters */
    char hw_version[8];   /**< "1.20" for hardware version 2 */
    uint8_t appauto;      /**< low 8 bits of get_appauto() */
    uint8_t type_flag;    /**< 0 or 1 by product type, see getSystemInfo() */
    uint8_t no_storage;   /**< 1 without storage interface */
    uint8_t reserved[37]; /**< not written */
    int32_t bandWidth;    /**< 12 to 32 by the ARM clock, see getSystemInfo() */
} SystemInfo;

/**
 * Fills the summary. `type_flag` is 0 for product types 2, 3, 6, 7, 17, 19 and 25 and 1 for the others, also
 * for type 7 with hardware version 1 and forward video chip 1. `bandWidth` is not written, after an ERROR
 * line, for an ARM clock that is not in the list of known ones (216 to 486 MHz).
 *
 * It also notes the product type for power_3g(): on a board of type 22 or 24, which has no modem, that call
 * fails with a message until getSystemInfo() has run in the process, and returns 0 silently from then on.
 *
 * @param info  where it goes
 * @return the result of get_device_id(), or -1 for null
 */
MARL_API int getSystemInfo(SystemInfo* info);

/** A co-processor or FPGA, from getSubModules(). */
typedef struct SubModuleInfo {
    char name[32];           /**< its name */
    char version[16];        /**< its version */
    char second_version[16]; /**< a second version, where it has one */
    uint8_t status;          /**< low 8 bits of the driver's answer; 1: could not be reached */
    uint8_t reserved[191];   /**< not written */
} SubModuleInfo;

/**
 * Lists the board's co-processor and FPGA. On the traffic models (TRV-A1 to TRV-A6 with a DM368) these are a
 * DM648 and, but on TRV-A1, an FPGA. All other boards list the DM365 of `/mnt/mtd/dm365_version`, or nothing
 * when that is short. Only what is known of an entry is written, so clear them before.
 *
 * @param modules  where they go, 2 entries
 * @param count    where their number goes
 * @return 0, on the traffic models also for a module that could not be reached; -1 when
 *         `/mnt/mtd/dm365_version` cannot be opened, and for a null argument
 */
MARL_API int getSubModules(SubModuleInfo* modules, int* count);

MARL_END_DECLS

/** @} */

#endif
