#include "libmarl/reboot.h"

#include <unistd.h>

#include "base/clock.h"
#include "base/diag.h"
#include "board/cmos.h"
#include "identity/catalogue.h"
#include "libmarl/cmos.h"
#include "libmarl/gpio.h"
#include "libmarl/hwinfo.h"
#include "libmarl/interfaces.h"
#include "libmarl/power_3g.h"
#include "libmarl/upgrade_flag.h"

namespace {

using namespace marl;

constexpr uint32_t kAttentionLine = 4;
constexpr uint32_t kBoardResetLine = 35;
constexpr uint32_t kCoprocessorResetLine = 48;
constexpr uint32_t kExpanderResetLine = 1;

constexpr int kIdleWaits = 60;
constexpr uint32_t kIdleWaitMs = 10'000;
constexpr uint32_t kResetLowMs = 20;

// Low, then high.
void pulse(uint32_t line, uint32_t low_ms) {
    gpio_set_bit(line, 0);
    sleep_ms(low_ms);
    gpio_set_bit(line, 1);
}

// Storage interfaces 2 and 3, the disks, are left to their own caches.
void flush_file_systems() {
    const int storage = get_dvr_info(MARL_INFO_STORE_INTERFACE);
    if (storage == 2 || storage == 3) {
        diag::line("[libmarl] skip sync");
        return;
    }
    diag::line("[libmarl] sync....");
    sync();
}

void reset_model_hardware() {
    if (catalogue::is_model_of(catalogue::kKa2)) {
        gio_expander_write(kExpanderResetLine, 1);
        sleep_ms(50);
    } else if (catalogue::is_model_of(catalogue::kKl7)) {
        pulse(kCoprocessorResetLine, 20);
        sleep_ms(500);
    }
}

void mark_orderly_end() {
    const uint8_t ended = 0;
    diag::line("[libmarl] before ioctl ");
    diag::line("[libmarl] write reboot cmos start");
    writeCMOS(cmos::kRunMarker, &ended, sizeof ended);
    diag::line("[libmarl] write reboot cmos end ");
}

}  // namespace

void pulse_gpio4() {
    pulse(kAttentionLine, 50);
    sleep_ms(50);
}

int sys_reboot() {
    pulse_gpio4();
    flush_file_systems();
    sleep_ms(200);
    diag::line("[libmarl] ......reset 3G module fix wire.......");
    if (NetWirelessPresent("eth2") < 0) power_3g_off();
    sleep_ms(900);
    reset_model_hardware();
    mark_orderly_end();
    // The run marker must be the last thing that this process writes there.
    cmos::hold_for_good();
    pulse(kBoardResetLine, kResetLowMs);
    return -1;
}

void reboot_when_idle() {
    for (int waits = 0; check_upgrade_map() != 0 && waits < kIdleWaits; ++waits) sleep_ms(kIdleWaitMs);
    sys_reboot();
    // Who is still here has a line that did not take its pulse.
    for (;;) {
        sleep_ms(kIdleWaitMs);
        pulse(kBoardResetLine, kResetLowMs);
    }
}

void sync_and_reboot() {
    sync();
    reboot_when_idle();
}

void sync_and_exit() {
    sync();
    _exit(0);
}
