// The watchdog, the upgrade flag, and the board's end and beginning.
#include <libmarl.h>
#include <unistd.h>

#include <iterator>

#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

constexpr const char* kEnds[] = {"orderly", "reset", "power"};

Exit without_watchdog() {
    return failed("the watchdog is not in use: the boot variable appauto is 0 or absent");
}

void show_upgrade(bool is_running) {
    results::print(is_running ? "running\n" : "idle\n");
    const results::JsonOnly rest;
    results::flag("upgrade", is_running);
}

Exit tell_of_flag(bool is_done, bool is_running) {
    if (!is_done) return failed("the upgrade flag cannot be set");
    const results::JsonOnly rest;
    results::flag("upgrade", is_running);
    return kDone;
}

}  // namespace

Exit watchdog_arm(const Request& request) {
    if (get_appauto() == 0) return without_watchdog();
    const uint32_t period_ms = request.number(0);
    if (wdt_set_period(static_cast<int32_t>(period_ms)) != 0) return failed("the watchdog cannot be armed");
    const results::JsonOnly rest;
    results::field("period_ms", period_ms);
    return kDone;
}

Exit watchdog_feed(const Request&) {
    if (get_appauto() == 0) return without_watchdog();
    if (wdt_keepalive() != 0) return failed("the watchdog cannot be fed");
    const results::JsonOnly rest;
    results::flag("fed", true);
    return kDone;
}

Exit upgrade_begin(const Request&) { return tell_of_flag(set_upgrade_map() == 0, true); }

// Without a file there is nothing to be lowered.
Exit upgrade_end(const Request&) {
    return tell_of_flag(check_upgrade_map() == 0 || clear_upgrade_map() == 0, false);
}

Exit upgrade_status(const Request&) {
    const int flag = check_upgrade_map();
    if (flag == -1)
        return failed("the upgrade flag cannot be read; who reboots takes that for a running upgrade");
    show_upgrade(flag != 0);
    return kDone;
}

Exit restart_kind(const Request&) {
    const int kind = get_restart_kind();
    if (kind == -1) return failed("it is not known: the memory cannot be reached");
    const bool is_named = kind >= 0 && kind < static_cast<int>(std::size(kEnds));
    results::field("restart_kind", kind);
    results::field("end", is_named ? kEnds[kind] : nullptr);
    return kDone;
}

Exit reboot(const Request& request) {
    const bool waits = request.has("--when-idle");
    if (!waits && check_upgrade_map() != 0) {
        return refused(
            "an upgrade runs: --when-idle waits for its end, \"marl upgrade end\" says that it is over");
    }
    {
        const results::JsonOnly rest;
        results::field("reboot", waits ? "when idle" : "now");
    }
    if (!results::end_object()) return failed_system("standard output");
    if (waits) sync_and_reboot();
    sync();
    sys_reboot();
    return failed("the board is still running");
}

}  // namespace tool
