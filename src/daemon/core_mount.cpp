#include "daemon/core_mount.h"

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "base/diag.h"
#include "libmarl/env.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr size_t kCommandSize = 256;
constexpr int32_t kKillDelayPasses = 100;
constexpr int32_t kKillSent = -1;

struct {
    std::atomic<int32_t> coremnt_started{0};            // written by corePthread, read by the loop
    int32_t coremnt_kill_countdown = kKillDelayPasses;  // the loop's own
} constinit g_core_mount;

void* core_pthread(void* /*unused*/) {
    char command[kCommandSize + 1] = {};
    if (get_armboot_para("coremnt", command, sizeof command) < 0) {
        g_core_mount.coremnt_started = 0;
        diag::line("coremnt not found");
        return nullptr;
    }
    if (strlen(command) == kCommandSize) {
        diag::out("coremnt is longer than %d characters, not run\n", static_cast<int>(kCommandSize - 1));
        return nullptr;
    }
    g_core_mount.coremnt_started = 1;
    const int result = system(command);
    if (result < 0) {
        diag::out(" %s failed %d,ret=%d\n", command, 0, result);
    } else {
        diag::out("%s success %d,ret=%d\n", command, 0, result);
    }
    return nullptr;
}

}  // namespace

void start_core_mount() {
    pthread_t corePthread{};
    if (pthread_create(&corePthread, nullptr, core_pthread, nullptr) != 0) {
        diag::line("Create corePthread failed");
        return;
    }
    pthread_detach(corePthread);  // nobody waits for it
}

void watch_core_mount() {
    int32_t& countdown = g_core_mount.coremnt_kill_countdown;
    if (g_core_mount.coremnt_started == 0) return;
    if (countdown > 0) --countdown;
    if (countdown != 0) return;
    countdown = kKillSent;
    diag::line("exit mount");
    // The result does not matter: the command may have ended long ago.
    [[maybe_unused]] const int ignored = system("killall mount");
}

}  // namespace sentrel
