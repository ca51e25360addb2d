#include "daemon/heartbeat.h"

#include <cstdint>

#include "base/diag.h"
#include "base/shared_word.h"
#include "libmarl/reboot.h"
#include "libmarl/upgrade_flag.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr uint32_t kUnchangedAccepted = 3;
constexpr uint32_t kZerosAccepted = 5;

struct Heartbeat {
    const char* path;
    bool mapped_writable;
    bool reports_open;
    SharedWord word{};
    bool begun = false;
    uint32_t last_value = 0;
    uint32_t unchanged_count = 0;
    uint32_t zero_count = 0;
};

// The loop's own.
constinit Heartbeat g_encode{
    .path = "/tmp/encode_to_sentrel", .mapped_writable = false, .reports_open = false};
constinit Heartbeat g_mediaguard{
    .path = "/tmp/mediaguard_to_sentrel", .mapped_writable = true, .reports_open = true};

// Opens and maps the file that bears the name now.
bool attach(Heartbeat& heartbeat) {
    if (heartbeat.word.follow(heartbeat.path, !heartbeat.begun) != 0) {
        if (heartbeat.reports_open) diag::out("open %s failed\n", heartbeat.path);
        return false;
    }
    return heartbeat.word.is_mapped() || heartbeat.word.map(heartbeat.mapped_writable);
}

// The watch begins at the value that counts as seen, which also makes sure that the word is there. Later the
// word is the process's alone: what it makes anew is read, never written.
void begin(Heartbeat& heartbeat) {
    if (heartbeat.begun) return;
    heartbeat.word.write(heartbeat.last_value);
    heartbeat.begun = true;
}

// The word of this check; false when there is none to count.
bool take_word(Heartbeat& heartbeat, uint32_t& value) {
    if (!attach(heartbeat)) return false;
    begin(heartbeat);
    return heartbeat.word.read(value);
}

// Whether a word other than 0 has stood still for too long.
bool is_stalled(Heartbeat& heartbeat, uint32_t value) {
    if (value != heartbeat.last_value) {
        heartbeat.last_value = value;
        heartbeat.unchanged_count = 0;
        return false;
    }
    return ++heartbeat.unchanged_count > kUnchangedAccepted;
}

int reboot_unless_upgrading() {
    if (check_upgrade_map() == 0) reboot_when_idle();
    diag::line("upgrade is on, skip--");
    return 0;
}

}  // namespace

int monitor_encode() {
    uint32_t value = 0;
    if (!take_word(g_encode, value) || value == 0) return 0;
    if (!is_stalled(g_encode, value)) return 0;
    diag::line("[sentrel] encode is killed");
    return reboot_unless_upgrading();
}

int monitor_mediaguard() {
    uint32_t value = 0;
    if (!take_word(g_mediaguard, value)) return 0;
    if (value == 0) {
        diag::out("%s, shm_mediaguard = 0, not reboot System\n", "monitor_mediaguard");
        if (++g_mediaguard.zero_count <= kZerosAccepted) return 0;
        diag::line("[sentrel] mmap  is failed");
        return reboot_unless_upgrading();
    }
    g_mediaguard.zero_count = 0;
    if (!is_stalled(g_mediaguard, value)) return 0;
    diag::line("[sentrel] MediaGuard is killed");
    return reboot_unless_upgrading();
}

}  // namespace sentrel
