#pragma once

#include <cstdint>

namespace sentrel {

struct ProcStatInfo {
    int32_t process_group;
    int32_t parent;
    char command[32];  // with its parentheses; a longer name is cut
    char state;
};

// Reads /proc/<pid>/stat of a process and then of up to `depth` ancestors, ending early at one whose parent
// is 0; `info` holds the last one read. 0, or -1 when a file cannot be read or parsed ("sscanf" on standard
// error; `info` is as the last good one left it). Safe from any thread.
int get_proc_stat(int32_t pid, ProcStatInfo* info, int32_t depth);

}  // namespace sentrel
