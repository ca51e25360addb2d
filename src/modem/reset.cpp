#include "base/clock.h"
#include "base/diag.h"
#include "base/lock.h"
#include "base/module.h"
#include "libmarl/modem.h"
#include "libmarl/power_3g.h"
#include "libmarl/usb_phy.h"
#include "modem/models.h"
#include "modem/usb_list.h"

namespace {

using namespace marl;

constexpr uint32_t kShortOffMs = 800;
constexpr uint32_t kLongOffMs = 2000;
constexpr uint32_t kLookPeriodMs = 500;
constexpr uint32_t kReturnWithinMs = 60'000;

// How the power of the modem is cycled.
enum class Cycle { Short, Long, WithPhy };

enum class PhyState { Off = 0, On = 1 };

// Held from switching off to switching on, whoever cycles the power.
constinit pthread_mutex_t g_cycle_lock = PTHREAD_MUTEX_INITIALIZER;

void switch_phy(PhyState state) { usb_phy_set_state(MARL_SYSTEM_MODULE_BASE, static_cast<int>(state)); }

void cycle_power(Cycle cycle) {
    const MutexLock lock(g_cycle_lock);
    power_3g_off();
    if (cycle == Cycle::WithPhy) switch_phy(PhyState::Off);
    sleep_ms(cycle == Cycle::Long ? kLongOffMs : kShortOffMs);
    power_3g_on();
    if (cycle == Cycle::WithPhy) switch_phy(PhyState::On);
}

bool is_slow_to_reset() { return modem_models::is_among(modem_models::kSlowToReset); }

bool has_switched_phy() { return catalogue::is_model_of(catalogue::kKq3); }

Cycle plain_cycle() {
    Usb3gModule module;
    if (find_3g_usb_device(&module) != 1) return Cycle::Short;
    if (is_slow_to_reset() && lookup_3g_module(&module) >= 0) return Cycle::Long;
    if (has_switched_phy()) return Cycle::WithPhy;
    return modem_models::has_modem_on_any_port() ? Cycle::Long : Cycle::Short;
}

// Before a wait every modem gets the long time, but one that the models slow to reset do not know.
Cycle cycle_before_wait() {
    Usb3gModule module;
    if (find_3g_usb_device(&module) != 1) return Cycle::Short;
    if (has_switched_phy()) return Cycle::WithPhy;
    return is_slow_to_reset() && lookup_3g_module(&module) < 0 ? Cycle::Short : Cycle::Long;
}

bool modem_returns() {
    Usb3gModule module;
    for (uint32_t waited_ms = 0; find_3g_usb_device(&module) != 1; waited_ms += kLookPeriodMs) {
        if (waited_ms >= kReturnWithinMs) return false;
        sleep_ms(kLookPeriodMs);
    }
    return true;
}

}  // namespace

int reset_3g() {
    cycle_power(plain_cycle());
    return 0;
}

int reset_3g_and_wait() {
    cycle_power(cycle_before_wait());
    if (modem_returns()) return 0;
    diag::error({module::kModem, "reset_3g_and_wait"}, "3G modem is not back within %u s\n",
                kReturnWithinMs / 1000);
    return -1;
}

int reset_3g_ifindex_unchecked(int index) {
    diag::out("[libmarl] inerface index  is %d\n", index);
    return reset_3g();
}

int reset_3g_ifindex(int index) { return reset_3g_ifindex_unchecked(index); }
