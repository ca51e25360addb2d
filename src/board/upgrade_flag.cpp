#include "libmarl/upgrade_flag.h"

#include <cerrno>

#include "base/diag.h"
#include "base/module.h"
#include "base/shared_word.h"

namespace {

using namespace marl;

constexpr const char* kPath = "/tmp/upgrade_ing";
constexpr uint32_t kIdle = 0;
constexpr uint32_t kUpgrading = 1;

// Each belongs to the operation of its name, which opens it on first use and keeps it.
struct {
    SharedWord check;
    SharedWord set;
    SharedWord clear;
} constinit g_flag;

int report_open() {
    diag::err("open %s failed\n", kPath);
    return -1;
}

int write_flag(SharedWord& flag, uint32_t value, bool create) {
    if (!flag.is_open() && flag.open(kPath, create) != 0) return report_open();
    return flag.write(value) ? 0 : -1;
}

}  // namespace

int check_upgrade_map() {
    SharedWord& flag = g_flag.check;
    if (!flag.is_open()) {
        const int error = flag.open(kPath, false);
        if (error == ENOENT) return 0;
        if (error != 0) return report_open();
    }
    if (!flag.is_mapped() && !flag.map(true)) {
        diag::err("mmap %s failed\n", kPath);
        return -1;
    }
    uint32_t value = kIdle;
    if (flag.read(value) < 0) return -1;
    if (value == kIdle || value == kUpgrading) return static_cast<int>(value);
    diag::warn({module::kFlash, "check_upgrade_map"}, "upgrade flag is unknown\n");
    return 0;
}

int init_upgrade_map() {
    SharedWord flag;
    const int result = write_flag(flag, kIdle, true);
    flag.close();
    return result;
}

int set_upgrade_map() { return write_flag(g_flag.set, kUpgrading, true); }

int clear_upgrade_map() { return write_flag(g_flag.clear, kIdle, false); }
