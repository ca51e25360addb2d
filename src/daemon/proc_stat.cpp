#include "daemon/proc_stat.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "base/diag.h"
#include "base/text.h"
#include "libmarl/proc.h"

namespace sentrel {
namespace {

using namespace marl;

// The name may hold blanks and parentheses of its own, and behind the last one come only a letter and
// numbers. Without parentheses it is the first word.
std::string_view command_in(std::string_view text) {
    const size_t end = text.rfind(')');
    if (end == std::string_view::npos) return first_word(text);
    const size_t blanks = std::min(text.find_first_not_of(" \t"), end);
    return rest_of(first_of(text, end + 1), blanks);
}

int read_stat(int32_t pid, ProcStatInfo& info) {
    char path[32];
    char key[16];
    char raw[MARL_PROC_RAW_SIZE + 1] = {};
    snprintf(path, sizeof path, "/proc/%" PRId32 "/stat", pid);
    snprintf(key, sizeof key, "%" PRId32, pid);
    if (get_proc_field(path, key, ' ', nullptr, raw) < 0) return -1;
    const std::string_view command = command_in(raw);
    ProcStatInfo read{};
    copy_text(read.command, sizeof read.command, command);
    const char* rest = command.empty() ? "" : command.data() + command.size();
    if (sscanf(rest, " %c %" SCNd32 " %" SCNd32, &read.state, &read.parent, &read.process_group) < 3) {
        diag::err("sscanf");
        return -1;
    }
    info = read;
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
