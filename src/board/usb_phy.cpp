#include "libmarl/usb_phy.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "base/clock.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "board/cmos.h"
#include "libmarl/cmos.h"

namespace {

using namespace marl;

constexpr size_t kRegistersSize = 136;
constexpr size_t kPhyControl = 0x34 / sizeof(uint32_t);
constexpr uint32_t kPhyPowerDown = 1U << 0;
constexpr uint32_t kPhyClockGood = 1U << 8;
constexpr uint32_t kPhyOffUs = 100;
constexpr uint32_t kPhyOnMs = 1;
constexpr int kClockReads = 6;
constexpr uint32_t kClockReadPauseMs = 1;

constexpr off64_t kMarkerRegion = 0x00014000;
constexpr size_t kMarkerRegionSize = 0x4000;
constexpr size_t kMarkerOffset = 0x3FFC;
constexpr uint32_t kMarker = 0x44444351;  // "QCDD"

constexpr uint8_t kRunning = 1;

struct RestartKind {
    bool known;
    int kind;
};

// Written by whichever call of this file comes first; one thread at a time.
struct {
    int fd = -1;
    volatile uint32_t* registers = nullptr;
    RestartKind restart{false, 0};
} constinit g_memory;

// The board's software expects the registers at their physical address.
bool map_registers() {
    if (g_memory.registers != nullptr) return true;
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    void* const wanted = reinterpret_cast<void*>(uintptr_t{MARL_SYSTEM_MODULE_BASE});
    void* got = mmap64(wanted, kRegistersSize, PROT_READ | PROT_WRITE, MAP_SHARED, g_memory.fd,
                       off64_t{MARL_SYSTEM_MODULE_BASE});
    if (got != wanted) {
        if (got != MAP_FAILED) munmap(got, kRegistersSize);
        diag::err("mem failed\n");
        return false;
    }
    g_memory.registers = static_cast<volatile uint32_t*>(got);
    return true;
}

void switch_phy_off(volatile uint32_t& control_register) {
    control_register = control_register | kPhyPowerDown;
    sleep_for_us(kPhyOffUs);
}

void switch_phy_on(volatile uint32_t& control_register) {
    control_register = control_register & ~kPhyPowerDown;
    sleep_ms(kPhyOnMs);
    for (int i = 0; i < kClockReads; ++i) {
        if (i > 0) sleep_ms(kClockReadPauseMs);
        if ((control_register & kPhyClockGood) != 0) return;
    }
    diag::err("USB_PPHY reset timeout\n");
}

// The run marker as the previous run left it; marks this run as running.
uint8_t exchange_run_marker() {
    uint8_t marker = kRunning;
    if (!cmos::read(cmos::kRunMarker, {&marker, 1})) marker = kRunning;
    writeCMOS(cmos::kRunMarker, &kRunning, sizeof kRunning);
    return marker;
}

// 1 when the marker in memory has survived, 2 when it has not and is planted now.
int check_memory_marker() {
    if (mem_open() < 0) {
        diag::out("OPEN %s error\n", device::kMemory);
        return -1;
    }
    void* region =
        mmap64(nullptr, kMarkerRegionSize, PROT_READ | PROT_WRITE, MAP_SHARED, g_memory.fd, kMarkerRegion);
    int kind = -1;
    if (region == MAP_FAILED) {
        diag::line("mem failed");
    } else {
        auto* marker = reinterpret_cast<volatile uint32_t*>(static_cast<char*>(region) + kMarkerOffset);
        kind = *marker == kMarker ? 1 : 2;
        if (kind == 2) *marker = kMarker;
        munmap(region, kMarkerRegionSize);
    }
    close(g_memory.fd);
    g_memory.fd = -1;
    return kind;
}

}  // namespace

int mem_open() {
    if (open_once(g_memory.fd, device::kMemory, O_RDWR | O_DSYNC) >= 0) return 0;
    diag::err("open %s error\n", device::kMemory);
    return -1;
}

int mem_close() {
    if (g_memory.registers != nullptr) munmap(const_cast<uint32_t*>(g_memory.registers), kRegistersSize);
    g_memory.registers = nullptr;
    if (g_memory.fd <= 0) return g_memory.fd;
    const int result = close(g_memory.fd);
    g_memory.fd = -1;
    return result;
}

int usb_phy_set_state(uint32_t /*base*/, int state) {
    if (state != 0 && state != 1) {
        diag::err("state must be 0 or 1\n");
        return -1;
    }
    if (mem_open() < 0 || !map_registers()) return -1;
    if (state == 0) {
        switch_phy_off(g_memory.registers[kPhyControl]);
    } else {
        switch_phy_on(g_memory.registers[kPhyControl]);
    }
    return 0;
}

int get_restart_kind() {
    RestartKind& restart = g_memory.restart;
    if (!restart.known) {
        const uint8_t marker = exchange_run_marker();
        restart = {true, marker != kRunning ? marker : check_memory_marker()};
    }
    return restart.kind;
}
