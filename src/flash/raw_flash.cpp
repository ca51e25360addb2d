#include <fcntl.h>
#include <mtd/mtd-user.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/object.h"
#include "board/dm365.h"
#include "flash/fpga_flash.h"
#include "flash/partitions.h"
#include "flash/storage_bus.h"
#include "identity/catalogue.h"
#include "libmarl/flash.h"
#include "libmarl/upgrade_flag.h"

namespace {

using namespace marl;

constexpr uint32_t kFpgaBase = 0x4000000;
constexpr uint32_t kHostSize = 0x1000000;
constexpr uint32_t kCoprocessorSize = 0x800000;
constexpr int32_t kCoprocessorMode = 1;

constexpr int kLowerTries = 3;
constexpr uint32_t kLowerPauseMs = 10;

struct PrivateRecord {
    ObjectCommon
        common;  // `id` is the current partition, `fd` its descriptor or that of the co-processor link
    int partition_fds[kMaxPartitions];
};

// Outlives the object. Written by its operations, which belong to one thread.
struct {
    bool coprocessor = false;  // the object is the DM365's flash
    bool fpga_opened = false;  // the FPGA flash was opened at some time
    bool unmounted = false;    // /mnt/custom and /mnt/web were detached
    bool skip_mark = false;
    bool flag_raised = false;  // the upgrade flag, since it was last lowered
} constinit g_flash;

constinit ObjectKind g_kind;

PrivateRecord& record_of(RawFlash* thiz) { return *static_cast<PrivateRecord*>(thiz->priv); }

bool is_usable(RawFlash* thiz, const char* operation, Need need) {
    return check_object(g_kind, thiz, operation, need);
}

uint32_t sector_size() { return g_partitions.CFG_FLASH_SEC_SIZE; }

bool is_fpga_address(uint32_t addr) { return addr >= kFpgaBase; }

bool wraps(uint32_t addr, uint32_t len) { return len > UINT32_MAX - addr; }

// A range in one of the host's two stores. What lies above the base of the FPGA flash is the FPGA's, even
// where the partitions go on.
bool is_range(uint32_t addr, uint32_t len) {
    return is_fpga_address(addr) ? !wraps(addr, len) : len <= kFpgaBase - addr;
}

// The place of an address in the current partition.
uint32_t partition_offset(RawFlash* thiz, uint32_t addr) {
    return addr - g_partitions.MTD_START[record_of(thiz).common.id];
}

bool is_sector_start(RawFlash* thiz, uint32_t addr) {
    return partition_offset(thiz, addr) % sector_size() == 0;
}

// A flag that cannot be raised is reported by the flag's own call, and does not stop what is to be done.
void raise_flag() {
    if (set_upgrade_map() == 0) g_flash.flag_raised = true;
}

// A flag that stays raised keeps the supervisor from rebooting a stalled board, so a failure is not the last
// word: it is tried again, here and by the next release. A flag that was not raised here is lowered once,
// come what may.
bool lower_flag() {
    bool is_lowered = clear_upgrade_map() == 0;
    for (int tries = 1; g_flash.flag_raised && !is_lowered && tries < kLowerTries; ++tries) {
        sleep_ms(kLowerPauseMs);
        is_lowered = clear_upgrade_map() == 0;
    }
    const bool is_gone = !is_lowered && errno == ENOENT;  // the file, and the flag with it
    if (is_lowered || is_gone) g_flash.flag_raised = false;
    return !g_flash.flag_raised;
}

bool open_fpga() {
    if (is_fpga_flash_open()) return true;
    g_flash.fpga_opened = true;
    if (fpga_flash_open() == 0) return true;
    diag::out("\033[1;33m[libmarl] WARN : ##: open fpga flash fail\n\033[m");
    return false;
}

// The record goes after it, and its descriptors with it.
void flash_close(const PrivateRecord& record) {
    if (g_flash.fpga_opened) fpga_flash_close();
    if (g_flash.coprocessor) {
        // The link's descriptor belongs to the process.
        if (record.common.fd == 0) diag::out("##: close spi fd fail\n");
        g_flash.coprocessor = false;
        return;
    }
    for (const int fd : record.partition_fds) {
        if (fd >= 0) close(fd);
    }
}

bool open_coprocessor(PrivateRecord& record) {
    record.common.fd = dm365_spi_open();
    if (record.common.fd < 0) diag::err("##: open spi interface fail\n");
    return record.common.fd >= 0;
}

bool open_partitions(PrivateRecord& record) {
    for (int i = 0; i < g_partitions.NUM_MTDS; ++i) {
        char path[24];
        snprintf(path, sizeof path, "/dev/mtd/%d", i);
        record.partition_fds[i] = open_file(path, O_RDWR);
        if (record.partition_fds[i] < 0) {
            const int error = errno;
            diag::out("open %s\n", path);
            diag::system_error("open mtd", error);
            flash_close(record);
            return false;
        }
    }
    record.common.fd = record.partition_fds[0];
    return true;
}

bool flash_open(PrivateRecord& record) {
    return g_flash.coprocessor ? open_coprocessor(record) : open_partitions(record);
}

RawFlash* make_object() {
    RawFlash* object = allocate_object<RawFlash, PrivateRecord>(
        g_kind, "RawFlash", [](const char* type) { diag::out("malloc(sizeof(%s))\n", type); });
    if (object == nullptr) return nullptr;
    int* fds = record_of(object).partition_fds;
    std::fill(fds, fds + std::size(record_of(object).partition_fds), -1);
    *object = {object->priv, flash_addref, flash_release, flash_getinfo,
               flash_read,   flash_write,  flash_erase,   flash_skip_cmos_mark};
    return object;
}

void choose_mode(int32_t selector) {
    g_flash.coprocessor = selector == kCoprocessorMode && catalogue::is_model_of(catalogue::kKl7);
    // The co-processor monitor asks for the version of the new firmware when it finds no record of
    // the old one.
    if (g_flash.coprocessor) unlink(dm365::kVersionPath);
}

// The programs on these two run from the flash that is about to change.
void detach_flash_mounts() {
    if (g_flash.unmounted) return;
    g_flash.unmounted = true;
    int error = 0;
    for (const char* path : {"/mnt/custom", "/mnt/web"}) {
        if (umount2(path, MNT_DETACH) == 0) continue;
        error = errno;
        diag::err("umount %s", path);
    }
    if (error != 0) diag::library_system_error("umount", error);
}

bool map_for_reading(RawFlash* thiz, uint32_t addr) {
    if (flash_map(thiz, addr) == 0) return true;
    diag::out("addr=%#lx\n", static_cast<unsigned long>(addr));
    return false;
}

bool read_at(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len) {
    const auto offset = static_cast<off_t>(partition_offset(thiz, addr));
    const ssize_t n = repeat_interrupted([&] { return pread(record_of(thiz).common.fd, buf, len, offset); });
    if (n == static_cast<ssize_t>(len)) return true;
    diag::out("ret=%d,len=%d", static_cast<int>(n), static_cast<int>(len));
    return false;
}

// Writes at a sector boundary of a partition that is erased there.
bool write_erased(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len) {
    if (flash_map(thiz, addr) < 0) return false;
    if (!is_sector_start(thiz, addr)) {
        diag::out("address doesn't  align 0x%x", sector_size());
        return false;
    }
    const auto offset = static_cast<off_t>(partition_offset(thiz, addr));
    const ssize_t n = repeat_interrupted([&] { return pwrite(record_of(thiz).common.fd, buf, len, offset); });
    if (n == static_cast<ssize_t>(len)) return true;
    diag::library_system_error("flash write", n < 0 ? errno : EIO);
    return false;
}

// Brings one sector to what the caller wants of it; `data` has `size` bytes of it, the rest stays as stored.
bool update_sector(RawFlash* thiz, const uint8_t* data, uint32_t addr, uint32_t size, uint8_t* sector) {
    if (flash_read(thiz, sector, addr, sector_size()) < 0) return false;
    if (memcmp(sector, data, size) == 0) return true;
    memcpy(sector, data, size);
    return flash_erase(thiz, addr, sector_size()) == 0 && write_erased(thiz, sector, addr, sector_size());
}

int update_sectors(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len, uint8_t* sector) {
    for (uint32_t done = 0; done < len;) {
        const uint32_t size = std::min(sector_size(), len - done);
        if (!update_sector(thiz, buf + done, addr + done, size, sector)) return -1;
        done += size;
    }
    return static_cast<int>(len);
}

uint8_t* allocate_sector() {
    auto* sector = static_cast<uint8_t*>(calloc(1, sector_size()));
    if (sector == nullptr) diag::out("calloc %#x\n", sector_size());
    return sector;
}

// A sector that begins with the caller's last piece and goes on as stored; null when it cannot be had.
uint8_t* complete_sector(RawFlash* thiz, const uint8_t* piece, uint32_t addr, uint32_t size) {
    uint8_t* sector = allocate_sector();
    if (sector == nullptr) return nullptr;
    if (flash_read(thiz, sector, addr, sector_size()) < 0) {
        free(sector);
        return nullptr;
    }
    memcpy(sector, piece, size);
    return sector;
}

// The first partition is erased and written in one go, without a look at what is stored. It has to hold all
// of the range: a write that is bound to fail must not erase.
int write_first_partition(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len) {
    if (len > g_partitions.MTD_START[1] - addr) return -1;
    const uint32_t tail = len % sector_size();
    const uint32_t whole = len - tail;
    uint8_t* last = tail > 0 ? complete_sector(thiz, buf + whole, addr + whole, tail) : nullptr;
    if (tail > 0 && last == nullptr) return -1;
    const bool done = flash_erase(thiz, addr, len) == 0 &&
                      (whole == 0 || write_erased(thiz, buf, addr, whole)) &&
                      (tail == 0 || write_erased(thiz, last, addr + whole, sector_size()));
    free(last);
    return done ? static_cast<int>(len) : -1;
}

// A range may go on into the next partition, but not behind the last one.
int write_other_partitions(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len) {
    if (len > 0 && !map_for_reading(thiz, addr + len - 1)) return -1;
    uint8_t* sector = allocate_sector();
    if (sector == nullptr) return -1;
    detach_flash_mounts();
    const int result = update_sectors(thiz, buf, addr, len, sector);
    free(sector);
    return result;
}

int write_partitions(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len) {
    const bool in_first = addr < g_partitions.MTD_START[1];
    if (in_first ? flash_map(thiz, addr) < 0 : !map_for_reading(thiz, addr)) return -1;
    if (!is_sector_start(thiz, addr)) {
        diag::out("address doesn't  align 0x%x", sector_size());
        return -1;
    }
    return in_first ? write_first_partition(thiz, buf, addr, len)
                    : write_other_partitions(thiz, buf, addr, len);
}

int write_fpga(const uint8_t* buf, uint32_t addr, uint32_t len) {
    const bool opens = !is_fpga_flash_open();
    if (!open_fpga()) return -1;
    if (opens) diag::line("[libmarl] ---------upgrade fpga flash---------");
    return fpga_flash_write(buf, len, addr - kFpgaBase);
}

int write_to_store(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len) {
    if (buf == nullptr || (!g_flash.coprocessor && !is_range(addr, len))) return -1;
    if (!release_storage_bus()) return -1;
    raise_flag();
    if (g_flash.coprocessor)
        return dm365_upgrade_write(record_of(thiz).common.fd, buf, len, addr, dm365::kUpgrading);
    return is_fpga_address(addr) ? write_fpga(buf, addr, len) : write_partitions(thiz, buf, addr, len);
}

bool erase_blocks(int fd, uint32_t start, uint32_t count) {
    for (uint32_t block = 0; block < count; ++block) {
        erase_info_user range{start + block * sector_size(), sector_size()};
        if (control(fd, MEMERASE, &range) < 0) {
            diag::library_system_error("perror:flash erase", errno);
            return false;
        }
    }
    return true;
}

}  // namespace

int createRawFlash(const int32_t* mode, RawFlash** out) {
    if (object_exists(g_kind) || mode == nullptr || out == nullptr) return -1;
    if (flash_init() < 0) {
        diag::err("flash_init failed\n");
        return -1;
    }
    *out = make_object();
    if (*out == nullptr) return -1;
    choose_mode(*mode);
    if (!flash_open(record_of(*out))) {
        g_flash.coprocessor = false;
        free_object(g_kind);
        *out = nullptr;
        return -1;
    }
    return 0;
}

int flash_addref(RawFlash* thiz) {
    if (!is_usable(thiz, "flash_addref", Need::Private)) return -1;
    return add_reference(record_of(thiz).common);
}

int flash_release(RawFlash* thiz) {
    if (!is_usable(thiz, "flash_release", Need::Private)) return -1;
    if (!drop_reference(record_of(thiz).common)) return 0;
    const bool lowered = lower_flag();
    flash_close(record_of(thiz));
    retire_object(g_kind);
    return mark_storage_bus_release(g_flash.skip_mark) && lowered ? 0 : -1;
}

int flash_getinfo(RawFlash* thiz, RawFlashInfo* info) {
    if (thiz == nullptr || thiz->priv == nullptr || info == nullptr) return -1;
    *info = g_flash.coprocessor ? RawFlashInfo{1, kCoprocessorSize, sector_size() / 2}
                                : RawFlashInfo{1, kHostSize, sector_size()};
    return 0;
}

int flash_map(RawFlash* thiz, uint32_t addr) {
    if (!is_usable(thiz, "flash_map", Need::Descriptor)) return -1;
    if (g_flash.coprocessor) return -1;  // it has no partitions, and the descriptor is that of its link
    const uint32_t* start = g_partitions.MTD_START;
    const int count = g_partitions.NUM_MTDS;
    if (addr < start[0] || addr >= start[count]) {
        diag::out("addr=%#lx,MTD_START[0]=%#x,MTD_START[%d]=%#x\n", static_cast<unsigned long>(addr),
                  start[0], count, start[count]);
        return -1;
    }
    ObjectCommon& common = record_of(thiz).common;
    common.id = static_cast<int32_t>(std::upper_bound(start, start + count, addr) - start) - 1;
    common.fd = record_of(thiz).partition_fds[common.id];
    return 0;
}

int flash_read(RawFlash* thiz, uint8_t* buf, uint32_t addr, uint32_t len) {
    if (!is_usable(thiz, "flash_read", Need::Descriptor)) return -1;
    if (g_flash.coprocessor) {
        diag::line("dm6446 spi driver not support !");
        return -1;
    }
    if (buf == nullptr || !is_range(addr, len)) return -1;
    if (is_fpga_address(addr)) return open_fpga() ? fpga_flash_read(buf, len, addr - kFpgaBase) : -1;
    if (!map_for_reading(thiz, addr)) return -1;
    return read_at(thiz, buf, addr, len) ? static_cast<int>(len) : -1;
}

int flash_write(RawFlash* thiz, const uint8_t* buf, uint32_t addr, uint32_t len) {
    if (!is_usable(thiz, "flash_write", Need::Descriptor)) return -1;
    const int result = write_to_store(thiz, buf, addr, len);
    if (result < 0 && is_fpga_address(addr)) forget_fpga_image();
    return result;
}

int flash_erase(RawFlash* thiz, uint32_t addr, uint32_t len) {
    if (!is_usable(thiz, "flash_erase", Need::Descriptor)) return -1;
    if (g_flash.coprocessor || wraps(addr, len) || wraps(len, sector_size() - 1)) return -1;
    if (flash_map(thiz, addr) < 0) return -1;
    raise_flag();
    if (!is_sector_start(thiz, addr)) {
        diag::out("address doesn't  align %#x", sector_size());
        return -1;
    }
    const uint32_t blocks = (len + sector_size() - 1) / sector_size();
    diag::out("[libmarl] flash erase: addr=%#lx,block_nums=%d, block_size=0x%x\n",
              static_cast<unsigned long>(addr), static_cast<int>(blocks), sector_size());
    return erase_blocks(record_of(thiz).common.fd, partition_offset(thiz, addr), blocks) ? 0 : -1;
}

int flash_skip_cmos_mark(RawFlash* /*thiz*/) {
    g_flash.skip_mark = true;
    return 0;
}
