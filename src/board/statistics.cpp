#include <algorithm>
#include <cstdio>

#include "base/diag.h"
#include "base/text.h"
#include "libmarl/proc.h"
#include "libmarl/system.h"

namespace {

using namespace marl;

constexpr const char* kMemory = "/proc/meminfo";
constexpr const char* kProcessor = "/proc/stat";

// The counts of the previous call; the callers of get_cpu_usage come one at a time.
struct {
    uint32_t idle = 0;
    uint32_t total = 0;
} constinit g_ticks;

// The kernel's count of idle ticks may step back a little, which is no idle time; a step back over half its
// range is the count passing its end.
uint32_t idle_elapsed(uint32_t idle) {
    const bool steps_back = idle < g_ticks.idle && g_ticks.idle - idle <= UINT32_MAX / 2;
    return steps_back ? 0 : idle - g_ticks.idle;
}

bool read_number(const char* path, const char* key, char separator, uint32_t& number) {
    char word[MARL_PROC_TOKEN_SIZE] = {};
    if (get_proc_field(path, key, separator, word, nullptr) < 0) return false;
    number = static_cast<uint32_t>(decimal(word));
    return true;
}

}  // namespace

int get_mem_info(MemInfo* info) {
    uint32_t unused = 0;
    uint32_t cached = 0;
    if (info == nullptr || !read_number(kMemory, "MemTotal", ':', info->total) ||
        !read_number(kMemory, "MemFree", ':', unused) || !read_number(kMemory, "Cached", ':', cached)) {
        return -1;
    }
    info->available = unused + cached;
    return 0;
}

uint32_t get_context_switches() {
    uint32_t count = 0;
    read_number(kProcessor, "ctxt", ' ', count);
    return count;
}

uint32_t get_cpu_usage() {
    char raw[MARL_PROC_RAW_SIZE + 1] = {};
    if (get_proc_field(kProcessor, "cpu", ' ', nullptr, raw) < 0) return 0;
    unsigned long long user = 0;
    unsigned long long nice = 0;
    unsigned long long system = 0;
    unsigned long long idle = 0;
    if (sscanf(raw, "%llu %llu %llu %llu", &user, &nice, &system, &idle) < 4) {
        diag::err("sscanf %s failed\n", raw);
        return 0;
    }
    const auto idle_ticks = static_cast<uint32_t>(idle);
    const auto total_ticks = static_cast<uint32_t>(user + nice + system + idle);
    const uint32_t elapsed = std::max(total_ticks - g_ticks.total, 1U);
    const uint64_t idle_share = uint64_t{idle_elapsed(idle_ticks)} * 100 / elapsed;
    g_ticks = {idle_ticks, total_ticks};
    return static_cast<uint32_t>(100 - std::min<uint64_t>(idle_share, 100));
}

int get_cpu_stat(CpuStat* stat) {
    if (stat == nullptr) return -1;
    stat->context_switches = get_context_switches();
    stat->usage = get_cpu_usage();
    return 0;
}
