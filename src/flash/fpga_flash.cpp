#include "flash/fpga_flash.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "libmarl/flash.h"

namespace {

using namespace marl;

constexpr const char* kDevice = "/dev/misc/spi1";
constexpr uint32_t kSectorSize = 4096;
constexpr uint32_t kImageSize = 0x80000;

constexpr unsigned long kIdentify = 0xc004650c;
constexpr unsigned long kStartProgramming = 0xc0046501;
constexpr unsigned long kOpenProtection = 0xc004650b;
constexpr unsigned long kEraseSector = 0xc0046508;
constexpr unsigned long kEndProgramming = 0xc0046502;

struct EraseArgument {
    uint32_t offset;
    uint32_t length;
};

// Written by the calls of this file, which belong to one thread.
struct {
    int fd = -1;
    uint8_t* first_sector = nullptr;  // kept from its erase to the end of the image
    bool first_sector_saved = false;  // and no write has failed since
} constinit g_fpga;

int report(const char* function, const char* message, int line = __builtin_LINE()) {
    diag::error({module::kFpgaFlash, function, line}, "%s\n", message);
    return -1;
}

int report_alignment(const char* function, int line = __builtin_LINE()) {
    diag::error({module::kFpgaFlash, function, line}, "address doesn't  align 0x%x", kSectorSize);
    return -1;
}

// A zeroed sector; the report is of the function that asks.
uint8_t* allocate_sector(const char* function, int line = __builtin_LINE()) {
    auto* sector = static_cast<uint8_t*>(calloc(1, kSectorSize));
    if (sector == nullptr) diag::error({module::kFpgaFlash, function, line}, "calloc %#x\n", kSectorSize);
    return sector;
}

bool is_identified(int fd) {
    const int number = control(fd, kIdentify, 0UL);
    return (number >= 481 && number <= 549) || (number >= 581 && number <= 649);
}

bool is_aligned(uint32_t value) { return value % kSectorSize == 0; }

bool seek_to(uint32_t offset) { return lseek(g_fpga.fd, static_cast<off_t>(offset), SEEK_SET) >= 0; }

bool read_sector(uint32_t offset, uint8_t* out) {
    return seek_to(offset) && read_some(g_fpga.fd, out, kSectorSize) == ssize_t{kSectorSize};
}

bool write_sector(uint32_t offset, const uint8_t* data) {
    return seek_to(offset) && write_some(g_fpga.fd, data, kSectorSize) == ssize_t{kSectorSize};
}

int erase_sector(uint32_t offset) {
    EraseArgument argument{offset, kSectorSize};
    return control(g_fpga.fd, kEraseSector, &argument);
}

bool start_programming() {
    if (control(g_fpga.fd, kStartProgramming, 0UL) < 0) {
        report("fpga_flash_open", "start  fpga_flash Program  failed");
        return false;
    }
    if (control(g_fpga.fd, kOpenProtection, 0UL) < 0) {
        report("fpga_flash_open", "open Protect failed");
        return false;
    }
    if (g_fpga.first_sector == nullptr) g_fpga.first_sector = allocate_sector("fpga_flash_open");
    return g_fpga.first_sector != nullptr;
}

// The next open starts from nothing: out of programming mode, without an image.
void forget_all() {
    if (g_fpga.fd >= 0) close(g_fpga.fd);
    g_fpga.fd = -1;
    free(g_fpga.first_sector);
    g_fpga.first_sector = nullptr;
    forget_fpga_image();
}

// Erased now, so that a half-written image never runs; written when the image is whole.
int save_first_sector(const uint8_t* data) {
    diag::line("[libmarl] erasing first sector......");
    if (const int result = erase_sector(0); result < 0) return result;
    memcpy(g_fpga.first_sector, data, kSectorSize);
    g_fpga.first_sector_saved = true;
    return 0;
}

int write_first_sector() {
    diag::line("[libmarl] writing first sector......");
    if (const int result = erase_sector(0); result < 0) return result;
    if (!write_sector(0, g_fpga.first_sector)) return report("fpga_flash_write", "write error");
    return kSectorSize;
}

// Rewrites one sector unless it is stored already.
int update_sector(uint32_t offset, const uint8_t* data, uint8_t* stored) {
    if (!read_sector(offset, stored)) return report("fpga_flash_write", "read error");
    if (memcmp(stored, data, kSectorSize) == 0) return kSectorSize;
    if (erase_sector(offset) < 0) return -1;
    diag::out("<fpga flash write>addr = 0x%x\n", offset);
    if (!write_sector(offset, data)) return report("fpga_flash_write", "write error");
    return kSectorSize;
}

int update_sectors(const uint8_t* buf, uint32_t len, uint32_t offset, uint8_t* stored) {
    int result = static_cast<int>(len);
    for (uint32_t done = 0; done < len && result >= 0; done += kSectorSize) {
        result = update_sector(offset + done, buf + done, stored);
    }
    return result;
}

// Whole sectors below 2^32, and not more of them than a result can tell.
bool is_range(const uint8_t* buf, uint32_t len, uint32_t offset) {
    return buf != nullptr && is_aligned(len) && len <= INT32_MAX && len <= UINT32_MAX - offset;
}

bool is_acceptable(const uint8_t* buf, uint32_t len, uint32_t offset) {
    if (!is_range(buf, len, offset) || len == 0) return false;
    return offset + len != kImageSize || offset == 0 || g_fpga.first_sector_saved;
}

int write_sectors(const uint8_t* buf, uint32_t len, uint32_t offset) {
    if (!is_fpga_flash_open()) return report("fpga_flash_write", "fd not open");
    if (!is_aligned(offset)) return report_alignment("fpga_flash_write");
    if (!is_acceptable(buf, len, offset)) return -1;
    uint8_t* stored = allocate_sector("fpga_flash_write");
    if (stored == nullptr) return -1;
    const uint32_t end = offset + len;
    int result = 0;
    if (offset == 0) {
        result = save_first_sector(buf);
        offset += kSectorSize;
        buf += kSectorSize;
        len -= kSectorSize;
    }
    if (result >= 0) result = update_sectors(buf, len, offset, stored);
    if (result >= 0 && end == kImageSize) result = write_first_sector();
    free(stored);
    return result;
}

}  // namespace

bool marl::is_fpga_flash_open() { return g_fpga.fd >= 0; }

void marl::forget_fpga_image() { g_fpga.first_sector_saved = false; }

int fpga_flash_open() {
    if (open_once(g_fpga.fd, kDevice, O_RDWR) < 0) {
        diag::out("\033[1;33m[libmarl] WARN : open %s fail\n\033[m", kDevice);
        return -1;
    }
    if (!is_identified(g_fpga.fd)) {
        diag::out("\033[1;33m[libmarl] WARN : This device is not support FPGA upgrade\n\033[m");
        forget_all();
        return -1;
    }
    if (!start_programming()) {
        forget_all();
        return -1;
    }
    return 0;
}

int fpga_flash_read(uint8_t* buf, uint32_t len, uint32_t offset) {
    if (!is_fpga_flash_open()) return report("fpga_flash_read", "fd not open");
    if (!is_aligned(offset)) return report_alignment("fpga_flash_read");
    if (!is_range(buf, len, offset)) return -1;
    for (uint32_t done = 0; done < len; done += kSectorSize) {
        if (!read_sector(offset + done, buf + done)) return report("fpga_flash_read", "read error");
    }
    return static_cast<int>(len);
}

int fpga_flash_write(const uint8_t* buf, uint32_t len, uint32_t offset) {
    const int result = write_sectors(buf, len, offset);
    if (result < 0) forget_fpga_image();
    return result;
}

void fpga_flash_close() {
    if (is_fpga_flash_open() && control(g_fpga.fd, kEndProgramming, 0UL) < 0)
        report("fpga_flash_close", "end  fpga_flash Program  failed");
    forget_all();
}
