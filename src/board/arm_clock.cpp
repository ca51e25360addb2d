// Physical memory, and the ARM clock that its registers tell.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/text.h"
#include "libmarl/env.h"
#include "libmarl/system.h"

namespace {

using namespace marl;

constexpr uint32_t kRegisters = 0x01C40000;
constexpr uint32_t kRegistersSize = 0xD2C;
constexpr uint32_t kPll1Mult = 0xD10;
constexpr uint32_t kPrediv = 0xD14;
constexpr uint32_t kPllDiv3 = 0xD20;
constexpr uint32_t kPostdiv = 0xD28;

constexpr uint32_t kReferenceHz = 24'000'000;

// The divisor in a divider register.
constexpr uint32_t divisor(uint32_t value) { return (value & 31) + 1; }

}  // namespace

int DRV_mMapOpen(int* fd_out) {
    if (fd_out == nullptr) return -1;
    const int fd = open_file(device::kMemory, O_RDWR | O_DSYNC);
    if (fd < 0) {
        diag::error({module::kSystem, "DRV_mMapOpen"}, "dev_fp Fail!! \n");
        return -1;
    }
    *fd_out = fd;
    return 0;
}

int DRV_mMapClose(int fd) {
    if (fd >= 1) close(fd);
    return 0;
}

void* DRV_mMap(int fd, uint32_t phys, uint32_t len) {
    void* map = mmap64(nullptr, len, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_SHARED, fd, off64_t{phys});
    if (map != MAP_FAILED && map != nullptr) return map;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the address is only printed
    const void* address = reinterpret_cast<void*>(uintptr_t{phys});
    diag::error({module::kSystem, "DRV_mMap"}, "mmap Fail, %p, %d , pMemMap = %p\n", address,
                static_cast<int>(len), map);
    return nullptr;
}

int DRV_mUnMap(void* addr, uint32_t len) {
    // From null on there is nothing of the caller's, but with a large length all of the process.
    if (addr != nullptr && munmap(addr, len) == 0) return 0;
    diag::error({module::kSystem, "DRV_mUnMap"}, "munmap Fail, %p, %d \n", addr, static_cast<int>(len));
    return -1;
}

int readReg(uint32_t* pll1_mult, uint32_t* prediv, uint32_t* postdiv, uint32_t* pll_div3) {
    if (pll1_mult == nullptr || prediv == nullptr || postdiv == nullptr || pll_div3 == nullptr) return -1;
    int opened = -1;
    if (DRV_mMapOpen(&opened) < 0) {
        diag::error({module::kSystem, "readReg"}, "open /dev/mem failed\n");
        return -1;
    }
    const Fd memory(opened);
    void* map = DRV_mMap(memory.get(), kRegisters, kRegistersSize);
    if (map == nullptr) {
        diag::error({module::kSystem, "readReg"}, "mmap error\n");
        return -1;
    }
    const auto* words = static_cast<const volatile uint32_t*>(map);
    diag::out("\033[0;32;32m[libmarl] memAddr = %p,* memAddr = 0x%x \n\033[m", map, words[0]);
    *pll1_mult = words[kPll1Mult / sizeof *words];
    *prediv = words[kPrediv / sizeof *words];
    *postdiv = words[kPostdiv / sizeof *words];
    *pll_div3 = words[kPllDiv3 / sizeof *words];
    DRV_mUnMap(map, kRegistersSize);
    return 0;
}

int read_armrate() {
    char text[8] = {};
    if (get_armboot_para("armrate", text, sizeof text) < 0) {
        diag::out("\033[0;32;32m[libmarl] read armrate failed\n\033[m");
        return -1;
    }
    return decimal(text);
}

int get_arm_rate() {
    const int rate = read_armrate();
    if (rate >= 1) {
        diag::out("[libmarl] armrate = %d\n", rate);
        return rate;
    }
    diag::line("[libmarl] Failed to get armrate from boot para, now calculate.");
    uint32_t pll1_mult = 0;
    uint32_t prediv = 0;
    uint32_t postdiv = 0;
    uint32_t pll_div3 = 0;
    if (readReg(&pll1_mult, &prediv, &postdiv, &pll_div3) < 0) return 0;
    diag::out(
        "\033[0;32;32m[libmarl] pll1_mult = 0x%x, prediv = 0x%x, postdiv = 0x%x, pll_div3 = 0x%x\n\033[m",
        pll1_mult, prediv, postdiv, pll_div3);
    const uint32_t hz = kReferenceHz / divisor(prediv) * pll1_mult * 2 / divisor(postdiv) / divisor(pll_div3);
    diag::out("[libmarl] armrate = %d\n", static_cast<int>(hz));
    return static_cast<int>(hz / 1'000'000);
}
