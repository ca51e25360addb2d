#include "daemon/supervisor.h"

#include <algorithm>
#include <cstdlib>

#include "base/clock.h"
#include "base/diag.h"
#include "daemon/clock_sync.h"
#include "daemon/clone_task.h"
#include "daemon/core_mount.h"
#include "daemon/dm365_link.h"
#include "daemon/dm365_monitor.h"
#include "daemon/eth_recovery.h"
#include "daemon/heartbeat.h"
#include "daemon/recorder_modem.h"
#include "daemon/reset_button.h"
#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"
#include "libmarl/power_3g.h"
#include "libmarl/upgrade_flag.h"
#include "libmarl/watchdog.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr uint32_t kPassMs = 200;

constexpr uint32_t kClockStepPerPass = 2;
constexpr uint32_t kClockThreshold = 1500;
constexpr uint32_t kFirstIdentityPause = 25;      // 5 s
constexpr uint32_t kLongestIdentityPause = 1500;  // 300 s
constexpr int kSupervisedCategory = 1;
constexpr uint32_t kHeartbeatAfterTicks = 25;
constexpr uint32_t kRecorderModemAfterPasses = 50;

constexpr int32_t kDefaultPeriodS = 25;
constexpr int32_t kLowestPeriodS = 3;
constexpr int32_t kHighestPeriodS = INT32_MAX / 1000;  // the driver counts milliseconds in 32 bits

int32_t watchdog_period_s(int argc, char** argv) {
    if (argc < 2) return kDefaultPeriodS;
    const long long given = strtoll(argv[1], nullptr, 10);
    return static_cast<int32_t>(std::clamp<long long>(given, kLowestPeriodS, kHighestPeriodS));
}

void print_banner(int32_t period_s, int appauto) {
    diag::out("sentrel V1.13(no exit): startup time=%d s, appauto=%d, hctosystime=%d,type=%.*s\n", period_s,
              appauto, static_cast<int>(kClockThreshold), MARL_MODEL_SIZE, product_model_ptr);
}

}  // namespace

bool Supervisor::start_up(int argc, char** argv) {
    identified_ = hwid_retry() == 0;
    identity_pause_ = identity_countdown_ = kFirstIdentityPause;
    power_3g_on();
    start_core_mount();
    period_s_ = watchdog_period_s(argc, argv);
    appauto_ = get_appauto();
    take_product_type();
    print_banner(period_s_, appauto_);
    init_upgrade_map();
    // The library opens the device once and keeps it, so the watchdog stays armed; other programs feed it.
    if (appauto_ != 0 && wdt_set_period(period_s_ * 1000) < 0) return false;
    choose_reset_gpio_line(product_type_);
    return true;
}

void Supervisor::take_product_type() {
    const bool was_coprocessor_board = product_type_ == kCoprocessorBoard;
    product_type_ = get_product_type();
    if (product_type_ != kCoprocessorBoard || was_coprocessor_board) return;
    int task_id = -1;
    clone_thread_create(&task_id, dm365_monitor_thread, nullptr);
}

void Supervisor::pass() {
    sleep_ms(kPassMs);
    count_pass();
    identify_when_due();
    sync_clock_when_due();
    check_reset_button(product_type_);
    check_ethernet();
    check_heartbeats_when_due();
    power_recorder_modem_when_due();
    watch_core_mount();
}

void Supervisor::count_pass() {
    clock_accumulator_ += kClockStepPerPass;
    if (heartbeat_ticks_ <= kHeartbeatAfterTicks) ++heartbeat_ticks_;
    if (passes_ <= kRecorderModemAfterPasses) ++passes_;
}

// A source of the identity that could not be read is asked again, ever more rarely. Once all have answered,
// what start-up did without knowing the board is made up for; the boot environment is one of them, so
// `appauto` is known then.
void Supervisor::identify_when_due() {
    if (identified_ || --identity_countdown_ > 0) return;
    identity_pause_ = std::min(identity_pause_ * 2, kLongestIdentityPause);
    identity_countdown_ = identity_pause_;
    if (hwid_retry() < 0) return;
    identified_ = true;
    power_3g_on();
    take_product_type();
    choose_reset_gpio_line(product_type_);
    if (appauto_ != 0) return;
    appauto_ = get_appauto();
    if (appauto_ != 0) wdt_set_period(period_s_ * 1000);
}

void Supervisor::sync_clock_when_due() {
    if (clock_accumulator_ <= kClockThreshold) return;
    rtc_to_system_clock();
    clock_accumulator_ = 0;
}

// A stalled MediaGuard is acted on before encode is looked at: either check may end in a reboot.
void Supervisor::check_heartbeats_when_due() {
    if (get_dvr_info(MARL_INFO_PRODUCT_CATEGORY) != kSupervisedCategory || appauto_ == 0) return;
    if (heartbeat_ticks_ <= kHeartbeatAfterTicks) return;
    monitor_mediaguard();
    monitor_encode();
    heartbeat_ticks_ = 0;
}

void Supervisor::power_recorder_modem_when_due() {
    if (recorder_modem_done_ || passes_ <= kRecorderModemAfterPasses) return;
    if (check_product_model("QZ-NRX2") == 0 && check_product_model("QZ-NRX1") == 0) return;
    recorder_modem_done_ = power_recorder_modem();
}

}  // namespace sentrel
