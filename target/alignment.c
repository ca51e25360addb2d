// A plugin of the emulator: watches every load and store of the programs, and tells of those that the board's ARM926
// would not do. The emulated processor is a younger one that does most of them, so that neither it nor its kernel sees
// them all. The kernel's own accesses are its own affair: it was built for the younger processor.
//
// Argument: report=PATH, what was found, one line an instruction.
#include <inttypes.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// What is used of the emulator's interface for plugins, version 1. Distributions do not pack its header.
typedef uint64_t qemu_plugin_id_t;
typedef uint32_t qemu_plugin_meminfo_t;
struct qemu_plugin_tb;
struct qemu_plugin_insn;
struct qemu_info;
enum { NO_REGISTERS = 0, LOADS_AND_STORES = 3 };
extern size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb*);
extern struct qemu_plugin_insn* qemu_plugin_tb_get_insn(const struct qemu_plugin_tb*, size_t index);
extern uint64_t qemu_plugin_insn_vaddr(const struct qemu_plugin_insn*);
extern const void* qemu_plugin_insn_data(const struct qemu_plugin_insn*);
extern size_t qemu_plugin_insn_size(const struct qemu_plugin_insn*);
extern char* qemu_plugin_insn_disas(const struct qemu_plugin_insn*);
extern unsigned qemu_plugin_mem_size_shift(qemu_plugin_meminfo_t);
extern void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t,
                                                  void (*)(qemu_plugin_id_t, struct qemu_plugin_tb*));
extern void qemu_plugin_register_vcpu_mem_cb(struct qemu_plugin_insn*,
                                             void (*)(unsigned, qemu_plugin_meminfo_t, uint64_t, void*),
                                             int registers, int kinds, void* argument);
extern void qemu_plugin_register_atexit_cb(qemu_plugin_id_t, void (*)(qemu_plugin_id_t, void*), void*);

#define EXPORT __attribute__((visibility("default")))
EXPORT int qemu_plugin_version = 1;

static const uint64_t kKernelStart = 0xbf000000;  // its modules lie below it

struct Found {
    uint64_t instruction, address;
    unsigned size;
    uint64_t times;
};

static struct Found found[256];
static size_t found_count;
static uint64_t watched;
static const char* report_path;

static void remember(uint64_t instruction, uint64_t address, unsigned size) {
    size_t i = 0;
    while (i < found_count && found[i].instruction != instruction) ++i;
    if (i == sizeof found / sizeof found[0]) return;
    if (i == found_count) found[found_count++] = (struct Found){instruction, address, size, 0};
    ++found[i].times;
}

// One processor: no two of these at a time.
static void at_access(unsigned cpu, qemu_plugin_meminfo_t info, uint64_t address, void* instruction) {
    (void)cpu;
    const unsigned size = 1U << qemu_plugin_mem_size_shift(info);
    ++watched;
    if ((address & (size - 1)) != 0) remember((uintptr_t)instruction, address, size);
}

// LDRD and STRD: the emulator makes them two accesses of a word each, the board wants them on eight bytes. Both words
// come here; the second lies where the first ought not to.
struct Pair {
    uint64_t instruction;
    bool second;
    uint64_t first_address;
};

static void at_pair(unsigned cpu, qemu_plugin_meminfo_t info, uint64_t address, void* context) {
    struct Pair* const pair = context;
    at_access(cpu, info, address, (void*)(uintptr_t)pair->instruction);
    // A page fault between the two repeats the first.
    if (pair->second && address == pair->first_address + 4) {
        pair->second = false;
        return;
    }
    if ((address & 7) == 4) remember(pair->instruction, address, 8);
    pair->second = true;
    pair->first_address = address;
}

// The size does not tell the two instruction sets apart: before the end of a page the emulator looks ahead, and gives a
// Thumb instruction the bytes of the next one as well. The disassembler knows the state of the processor; it is asked only
// about what would be a pair in ARM code.
static bool is_pair(const struct qemu_plugin_insn* instruction) {
    uint32_t word = 0;
    if (qemu_plugin_insn_size(instruction) != sizeof word) return false;
    memcpy(&word, qemu_plugin_insn_data(instruction), sizeof word);
    if ((word >> 28) == 0xf || (word & 0x0e1000d0) != 0x000000d0) return false;
    char* const text = qemu_plugin_insn_disas(instruction);
    const bool pair = strncmp(text, "ldrd", 4) == 0 || strncmp(text, "strd", 4) == 0;
    free(text);
    return pair;
}

static void watch_pair(struct qemu_plugin_insn* instruction) {
    struct Pair* const pair = calloc(1, sizeof *pair);
    if (pair == NULL) abort();
    pair->instruction = qemu_plugin_insn_vaddr(instruction);
    qemu_plugin_register_vcpu_mem_cb(instruction, at_pair, NO_REGISTERS, LOADS_AND_STORES, pair);
}

// Before the kernel is where it belongs there is nothing but what unpacks it, which is its own affair as well.
static bool is_program(uint64_t address) {
    static bool kernel_runs = false;
    kernel_runs = kernel_runs || address >= kKernelStart;
    return kernel_runs && address < kKernelStart;
}

static void at_translation(qemu_plugin_id_t id, struct qemu_plugin_tb* block) {
    (void)id;
    for (size_t i = 0; i < qemu_plugin_tb_n_insns(block); ++i) {
        struct qemu_plugin_insn* const instruction = qemu_plugin_tb_get_insn(block, i);
        const uint64_t address = qemu_plugin_insn_vaddr(instruction);
        if (!is_program(address)) return;
        if (is_pair(instruction)) {
            watch_pair(instruction);
        } else {
            qemu_plugin_register_vcpu_mem_cb(instruction, at_access, NO_REGISTERS, LOADS_AND_STORES,
                                             (void*)(uintptr_t)address);
        }
    }
}

static void at_exit(qemu_plugin_id_t id, void* unused) {
    (void)id, (void)unused;
    FILE* const file = fopen(report_path, "w");
    if (file == NULL) return;
    fprintf(file, "watched %" PRIu64 "\n", watched);
    for (size_t i = 0; i < found_count; ++i) {
        fprintf(file, "unaligned at %#" PRIx64 ": %u bytes at %#" PRIx64 ", %" PRIu64 " times\n",
                found[i].instruction, found[i].size, found[i].address, found[i].times);
    }
    fclose(file);
}

EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const struct qemu_info* info, int argc, char** argv) {
    (void)info;
    if (argc != 1 || strncmp(argv[0], "report=", 7) != 0) return -1;
    report_path = strdup(argv[0] + 7);
    qemu_plugin_register_vcpu_tb_trans_cb(id, at_translation);
    qemu_plugin_register_atexit_cb(id, at_exit, NULL);
    return 0;
}
