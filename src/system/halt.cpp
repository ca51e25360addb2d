#include "libmarl/halt.h"

#include <sys/select.h>
#include <unistd.h>

#include <algorithm>

#include "base/clock.h"
#include "base/diag.h"
#include "board/cmos.h"
#include "identity/catalogue.h"
#include "libmarl/cmos.h"
#include "libmarl/gpio.h"
#include "libmarl/mcu.h"

namespace {

using namespace marl;

constexpr uint32_t kExpanderLine = 0;
constexpr uint32_t kActiveLowLine = 49;
constexpr uint32_t kRecorderLine = 45;

constexpr uint32_t kHalfSecondMs = 500;
constexpr uint32_t kUsPerSecond = 1'000'000;

void mark_orderly_end() {
    const uint8_t ended = 0;
    diag::line("[libmarl] write shutdown cmos start");
    writeCMOS(cmos::kRunMarker, &ended, sizeof ended);
    diag::line("[libmarl] write shutdown cmos end ");
}

int set_signal_output(bool on) {
    const uint32_t high_is_on = on ? 1 : 0;
    if (catalogue::is_encoder(catalogue::Encoder::Af)) gio_expander_write(kExpanderLine, high_is_on);
    if (catalogue::is_encoder(catalogue::Encoder::Am)) gpio_set_bit(kActiveLowLine, 1 - high_is_on);
    if (catalogue::is_encoder(catalogue::Encoder::Ah)) gio_expander_write(kExpanderLine, high_is_on);
    if (!catalogue::is_model_of(catalogue::kRecorders)) return 0;
    return gpio_set_bit(kRecorderLine, high_is_on);
}

}  // namespace

int sys_halt() {
    diag::err("sys will halt\n");
    sync();
    if (!catalogue::is_model_of(catalogue::kRecorders)) return 0;
    mark_orderly_end();
    const int result = mcu_shutdown();
    if (result < 0) diag::line("shut_down_NRX2 fail ");
    return result;
}

int signal_output_on() { return set_signal_output(true); }

int signal_output_off() { return set_signal_output(false); }

int signal_output_toggle(uint32_t rate, uint32_t duration_ms) {
    if (rate == 0) return -1;
    const uint32_t half = std::max<uint32_t>(kHalfSecondMs / rate, 1);
    // Wider than the duration: the sum of 32 bits would never exceed the longest ones.
    for (uint64_t elapsed = 0; elapsed <= duration_ms;) {
        signal_output_on();
        sleep_ms(half);
        const bool last = elapsed + half > duration_ms;
        elapsed += uint64_t{2} * half;
        signal_output_off();
        if (last) break;
        sleep_ms(half);
    }
    return 0;
}

int sleep_us(uint32_t us) {
    timeval left{static_cast<time_t>(us / kUsPerSecond), static_cast<suseconds_t>(us % kUsPerSecond)};
    return select(0, nullptr, nullptr, nullptr, &left);
}
