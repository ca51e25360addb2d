#include "daemon/proc_stat.h"

#include <cinttypes>
#include <cstdio>

#include "base/diag.h"
#include "libmarl/proc.h"

namespace sentrel {
namespace {

int read_stat(int32_t pid, ProcStatInfo& info) {
    char path[32];
    char key[16];
    char raw[MARL_PROC_RAW_SIZE + 1] = {};
    snprintf(path, sizeof path, "/proc/%" PRId32 "/stat", pid);
    snprintf(key, sizeof key, "%" PRId32, pid);
    if (get_proc_field(path, key, ' ', nullptr, raw) < 0) return -1;
    const int fields = sscanf(raw, "%31s %c %" SCNd32 " %" SCNd32, info.command, &info.state, &info.parent,
                              &info.process_group);
    if (fields < 4) {
        marl::diag::err("sscanf");
        return -1;
    }
    return 0;
}

}  // namespace

int get_proc_stat(int32_t pid, ProcStatInfo* info, int32_t depth) {
    if (info == nullptr) return -1;
    for (int32_t level = 0; level <= depth; ++level) {
        if (read_stat(level == 0 ? pid : info->parent, *info) < 0) return -1;
        if (info->parent == 0) break;
    }
    return 0;
}

}  // namespace sentrel
