#include "daemon/eth_recovery.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/text.h"
#include "libmarl/net_live.h"
#include "libmarl/proc.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr const char* kDriverFile = "/proc/net/emac_stats";
constexpr const char* kErrorKey = "DEMAC Error               ";
constexpr int32_t kCheckPasses = 25;
constexpr int kReadingsBeforeRestart = 5;
constexpr uint32_t kReadingPauseMs = 1'000;
constexpr uint32_t kInterfacePauseMs = 2'000;

// The loop's own.
struct {
    int32_t check_countdown = kCheckPasses;
    uint32_t eth_restart_count = 0;
} constinit g_ethernet;

std::optional<int32_t> read_error_state() {
    char word[MARL_PROC_TOKEN_SIZE] = {};
    if (get_proc_field(kDriverFile, kErrorKey, ':', word, nullptr) < 0) return std::nullopt;
    return decimal(word);
}

// The state after up to five readings, 0 as soon as one is. Nothing when the state cannot be read.
std::optional<int32_t> read_lasting_error() {
    std::optional<int32_t> state = read_error_state();
    for (int reading = 1; reading < kReadingsBeforeRestart && state.value_or(0) != 0; ++reading) {
        sleep_ms(kReadingPauseMs);
        state = read_error_state();
    }
    return state;
}

void run_and_wait(const char* command) {
    [[maybe_unused]] const int ignored = system(command);
    sleep_ms(kInterfacePauseMs);
}

void restart_eth0(int32_t state) {
    run_and_wait("ifconfig eth0 down");
    run_and_wait("ifconfig eth0 up");
    char gateway[16] = {};
    NetGetGateway("eth0", gateway, sizeof gateway);
    NetApplyGateway("eth0", gateway);
    diag::out("==>net helper: restart eth0,state=%d,cnt=%d,default gw=%s\n", state,
              static_cast<int>(g_ethernet.eth_restart_count), gateway);
    ++g_ethernet.eth_restart_count;
}

}  // namespace

void check_ethernet() {
    if (g_ethernet.check_countdown >= 0) --g_ethernet.check_countdown;
    if (g_ethernet.check_countdown >= 0) return;
    const std::optional<int32_t> state = read_lasting_error();
    if (!state) return;  // stays due
    if (*state > 0) restart_eth0(*state);
    g_ethernet.check_countdown = kCheckPasses;
}

int SetEthUpDown(const char* name, const char* cmd) {
    if (name == nullptr || cmd == nullptr) return -1;
    const Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd.is_open()) {
        diag::system_error("socket", errno);
        return -1;
    }
    ifreq request{};
    copy_text(request.ifr_name, sizeof request.ifr_name, name);
    control(fd.get(), SIOCGIFFLAGS, &request);
    if (strcmp(cmd, "down") == 0) {
        request.ifr_flags = static_cast<short>(request.ifr_flags & ~IFF_UP);
        diag::out("[libmarl] %s down\n", name);
    } else if (strcmp(cmd, "up") == 0) {
        request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING);
        diag::out("[libmarl] %s up\n", name);
    } else {
        diag::error({module::kDaemon, "SetEthUpDown"}, "unknow cmd , %s", cmd);
        return -1;
    }
    control(fd.get(), SIOCSIFFLAGS, &request);
    return 0;
}

}  // namespace sentrel
