/*
 * Board services: shell commands, physical memory, the ARM clock, memory and processor statistics, and
 * summaries of the system and its sub-modules.
 *
 * No call has to come first but DRV_mMapOpen(), which gives the descriptor for DRV_mMap(). All are safe from
 * any thread, with two exceptions: get_cpu_usage() and get_cpu_stat() share the counts of the previous call,
 * and getSystemInfo() writes a word of the process that power_3g() reads (libmarl/power_3g.h); each belongs
 * to one thread at a time.
 *
 * ERROR lines and progress go to standard output; a file under /proc that cannot be opened is reported as
 * "open %s failed\n" on standard error. No call here reports a system error of its own.
 */
#ifndef LIBMARL_SYSTEM_H
#define LIBMARL_SYSTEM_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * Runs a command with /bin/sh -c and waits for it: its wait status (waitpid(2)), or -1 for a null command or
 * when the child cannot be made (an ERROR line) or waited for. A shell that cannot be started gives exit
 * status 127. The child announces itself with "[libmarl] inclild ppid=%d pid=%d \n" on standard output, if
 * that takes it at once; the command itself has the caller's streams and may wait for them.
 *
 * Safe from any thread. Handlers of the caller never run in the child, which starts with the caller's signal
 * mask. Where SIGCHLD is ignored it is not for as long as a command runs: other children that end then stay
 * to be waited for.
 */
MARL_API int my_system_call(const char* command);

/*
 * Opens /dev/mem, read-write and synchronous, into `*fd_out`: a new descriptor each time. 0, or -1 after an
 * ERROR line.
 */
MARL_API int DRV_mMapOpen(int* fd_out);

/* Closes a descriptor of DRV_mMapOpen(); one below 1 is left open. 0. */
MARL_API int DRV_mMapClose(int fd);

/*
 * Maps `len` bytes of physical memory at the page-aligned address `phys`, shared, to be read, written and
 * executed. Null after an ERROR line.
 */
MARL_API void* DRV_mMap(int fd, uint32_t phys, uint32_t len);

/* Unmaps it. 0, or -1 after an ERROR line. */
MARL_API int DRV_mUnMap(void* addr, uint32_t len);

/* The registers of the first PLL, as they stand. 0, or -1 after ERROR lines, with nothing stored. */
MARL_API int readReg(uint32_t* pll1_mult, uint32_t* prediv, uint32_t* postdiv, uint32_t* pll_div3);

/* The boot variable `armrate`, in MHz; -1 with a line on standard output when there is none. */
MARL_API int read_armrate(void);

/*
 * The ARM clock in MHz: the boot variable, or where that is missing or below 1, computed from the PLL
 * registers; 0 when they cannot be read. Says on standard output where it came from.
 */
MARL_API int get_arm_rate(void);

typedef struct MemInfo {
    uint32_t total;     /* kB */
    uint32_t available; /* kB, free and cached */
} MemInfo;

typedef struct CpuStat {
    uint32_t usage;            /* percent */
    uint32_t context_switches; /* since boot, modulo 2^32 */
} CpuStat;

/* Reads /proc/meminfo. 0, or -1 when a field is missing; the total may be set then. */
MARL_API int get_mem_info(MemInfo* info);

/* The context switches since boot, 0 when they cannot be read. */
MARL_API uint32_t get_context_switches(void);

/*
 * Processor usage in percent, 0 to 100, since the previous call of the process, the first time since boot; 0
 * when it cannot be read. An idle count that steps back counts as no idle time. One thread at a time.
 */
MARL_API uint32_t get_cpu_usage(void);

/* Both of the above. 0, or -1 for a null argument. One thread at a time. */
MARL_API int get_cpu_stat(CpuStat* stat);

/*
 * The device identifier into `buf` of `len` bytes: the boot variable `ID`, with a line on standard output, or
 * when that is absent or 18 zeros, eth0's MAC address as of NetGetMAC() (libmarl/net_identity.h). 0, or -1.
 */
MARL_API int get_device_id(char* buf, int len);

typedef struct SystemInfo {
    char chip[32];
    char id[32];
    char type[32];        /* product model, cut to 31 characters */
    char hw_version[8];   /* "1.20" for hardware version 2 */
    uint8_t appauto;      /* low 8 bits of get_appauto() */
    uint8_t type_flag;    /* 0 or 1 by product type, see getSystemInfo() */
    uint8_t no_storage;   /* 1 without storage interface */
    uint8_t reserved[37]; /* not written */
    int32_t bandWidth;    /* 12 to 32 by the ARM clock, see getSystemInfo() */
} SystemInfo;

/*
 * Fills the summary; the result of get_device_id(), or -1 for a null argument. `type_flag` is 0 for product
 * types 2, 3, 6, 7, 17, 19 and 25 and 1 for the others, also for type 7 with hardware version 1 and forward
 * video chip 1. `bandWidth` is not written, after an ERROR line, for an ARM clock that is not in the list of
 * known ones (216 to 486 MHz).
 *
 * It also notes the product type for power_3g(): on a board of type 22 or 24, which has no modem, that call
 * fails with a message until getSystemInfo() has run in the process, and returns 0 silently from then on.
 */
MARL_API int getSystemInfo(SystemInfo* info);

typedef struct SubModuleInfo {
    char name[32];
    char version[16];
    char second_version[16];
    uint8_t status; /* low 8 bits of the driver's answer; 1: could not be reached */
    uint8_t reserved[191];
} SubModuleInfo;

/*
 * Lists the board's co-processor and FPGA into `modules` (2 entries) and their number into `*count`. On the
 * traffic models (TRV-A1 to TRV-A6 with a DM368) these are a DM648 and, but on TRV-A1, an FPGA: 0, also for a
 * module that could not be reached. All other boards list the DM365 of /mnt/mtd/dm365_version, or nothing
 * when that is short: 0, or -1 when it cannot be opened. -1 for a null argument. Only what is known of an
 * entry is written, so clear them before.
 */
MARL_API int getSubModules(SubModuleInfo* modules, int* count);

MARL_END_DECLS

#endif
