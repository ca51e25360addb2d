#include "libmarl/upgrade_flag.h"

#include <cerrno>

#include "base/diag.h"
#include "base/lock.h"
#include "base/module.h"
#include "base/shared_word.h"

namespace {

using namespace marl;

constexpr const char* kPath = "/tmp/upgrade_ing";
constexpr uint32_t kIdle = 0;
constexpr uint32_t kUpgrading = 1;

// Each belongs to the operation of its name, which opens it on first use and keeps it. The lock is for a file
// made anew while one thread of the process looks at the flag and another one writes it.
struct {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    SharedWord check;
    SharedWord set;
    SharedWord clear;
} constinit g_flag;

int report(const char* what) {
    diag::err("%s %s failed\n", what, kPath);
    return -1;
}

int write_flag(SharedWord& flag, uint32_t value, bool create) {
    const bool is_written = flag.follow(kPath, create) == 0 && flag.write(value);
    return is_written ? 0 : report("open");
}

// A file that this process raised the flag in may have lost its name since. Whoever had it open looks
// at it still.
void lower_nameless_flag() {
    if (g_flag.set.is_open() && !g_flag.set.is_named(kPath)) g_flag.set.write(kIdle);
}

}  // namespace

int check_upgrade_map() {
    const MutexLock lock(g_flag.lock);
    SharedWord& flag = g_flag.check;
    const int error = flag.follow(kPath, false);
    if (error == ENOENT && !flag.is_open()) return 0;
    if (error != 0) return report("open");
    uint32_t value = kIdle;
    const bool is_fetched = (flag.is_mapped() || flag.map(true)) && flag.read(value);
    if (!is_fetched) return report("mmap");
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

int set_upgrade_map() {
    const MutexLock lock(g_flag.lock);
    return write_flag(g_flag.set, kUpgrading, true);
}

int clear_upgrade_map() {
    const MutexLock lock(g_flag.lock);
    lower_nameless_flag();
    return write_flag(g_flag.clear, kIdle, false);
}
