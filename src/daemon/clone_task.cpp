#include "daemon/clone_task.h"

#include <sched.h>
#include <signal.h>

#include <cstdlib>
#include <cstring>

#include "base/diag.h"

namespace sentrel {
namespace {

constexpr size_t kStackSize = 8096;
constexpr int kFlags = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | SIGCHLD;

}  // namespace

int clone_thread_create(int* out_id, int (*fn)(void*), void* arg) {
    auto* block = static_cast<char*>(malloc(kStackSize));
    if (block == nullptr) return -1;
    char* top = block + kStackSize - sizeof arg;
    memcpy(top, &arg, sizeof arg);
    marl::diag::share_errno_on(block, kStackSize);
    const int id = clone(fn, top, kFlags, arg);
    if (id < 0) {
        marl::diag::out("create failed:%d\n", id);
        free(block);
        *out_id = 0;
        return -1;
    }
    *out_id = id;
    return 0;
}

}  // namespace sentrel
