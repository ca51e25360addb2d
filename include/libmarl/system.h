/*
 * Board services: shell commands, physical memory, the ARM clock, memory and processor statistics, and
 * summaries of the system and its sub-modules. ERROR lines go to standard output.
 */
#ifndef LIBMARL_SYSTEM_H
#define LIBMARL_SYSTEM_H

#include "libmarl/export.h"

MARL_BEGIN_DECLS

/*
 * Runs a shell command and waits for it: its wait status (waitpid(2)), or -1 for a null command or when the
 * child cannot be made or waited for. A shell that cannot be started gives exit status 127. The child
 * announces itself as
 * "[libmarl] inclild ppid=%d pid=%d \n". Safe from any thread.
 */
MARL_API int my_system_call(const char* command);

/* Opens /dev/mem for synchronous access into `*fd_out`. 0, or -1 after an ERROR line. */
MARL_API int DRV_mMapOpen(int* fd_out);

/* Closes a descriptor of DRV_mMapOpen. 0. */
MARL_API int DRV_mMapClose(int fd);

/* Maps `len` bytes of physical memory at the page-aligned address `phys`, shared. Null after an ERROR line.
 */
MARL_API void* DRV_mMap(int fd, uint32_t phys, uint32_t len);

/* Unmaps it. 0, or -1 after an ERROR line. */
MARL_API int DRV_mUnMap(void* addr, uint32_t len);

/* The registers of the first PLL. 0, or -1 after an ERROR line, with nothing stored. */
MARL_API int readReg(uint32_t* pll1_mult, uint32_t* prediv, uint32_t* postdiv, uint32_t* pll_div3);

/* The boot variable `armrate` in MHz, or -1. */
MARL_API int read_armrate(void);

/* The ARM clock in MHz: the boot variable, or else computed from the PLL registers; 0 when they cannot be
 * read. */
MARL_API int get_arm_rate(void);

typedef struct MemInfo {
    uint32_t total;     /* kB */
    uint32_t available; /* kB, free and cached */
} MemInfo;

typedef struct CpuStat {
    uint32_t usage;            /* percent */
    uint32_t context_switches; /* since boot, modulo 2^32 */
} CpuStat;

/* /proc/meminfo. 0, or -1 when a field is missing; the total may be set then. */
MARL_API int get_mem_info(MemInfo* info);

/* The context switches since boot, 0 when they cannot be read. */
MARL_API uint32_t get_context_switches(void);

/* Processor usage in percent since the previous call, the first time since boot; 0 when it cannot be read.
 * One thread at a time: all callers of a process share the previous counts. */
MARL_API uint32_t get_cpu_usage(void);

/* Both of the above. 0, or -1 for a null argument. */
MARL_API int get_cpu_stat(CpuStat* stat);

/*
 * The device identifier into `buf` of `len` bytes: the boot variable `ID`, or when that is absent or 18
 * zeros, eth0's MAC address. 0, or -1.
 */
MARL_API int get_device_id(char* buf, int len);

typedef struct SystemInfo {
    char chip[32];
    char id[32];
    char type[32];        /* product model, cut to 31 characters */
    char hw_version[8];   /* "1.20" for hardware version 2 */
    uint8_t appauto;      /* low 8 bits */
    uint8_t type_flag;    /* 0 for the product types that are told apart by it */
    uint8_t no_storage;   /* 1 without storage interface */
    uint8_t reserved[37]; /* not written */
    int32_t bandWidth;    /* not written, after an ERROR line, for a clock that is not known */
} SystemInfo;

/* Fills the summary; the result of get_device_id(), or -1 for a null argument. */
MARL_API int getSystemInfo(SystemInfo* info);

typedef struct SubModuleInfo {
    char name[32];
    char version[16];
    char second_version[16];
    uint8_t status; /* 1: could not be reached */
    uint8_t reserved[191];
} SubModuleInfo;

/*
 * Lists the co-processor and FPGA of the board into `modules` (2 entries), their number into `*count`. 0,
 * also for a module that could not be reached; -1 for a null argument, or on boards that list a DM365 when
 * its version record cannot be opened.
 */
MARL_API int getSubModules(SubModuleInfo* modules, int* count);

MARL_END_DECLS

#endif
