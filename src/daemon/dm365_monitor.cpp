#include "daemon/dm365_monitor.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/bytes.h"
#include "base/clock.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "board/dm365.h"
#include "daemon/dm365_link.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr unsigned long kReadCaptureInterrupts = 0x80145603;
constexpr uint32_t kCaptureStalled = 1;
constexpr uint8_t kResetLine = 48;

constexpr uint32_t kStartDelayMs = 25'000;
constexpr uint32_t kPassMs = 5'000;
constexpr uint32_t kCaptureUpgradePauseMs = 5'000;
constexpr uint32_t kUpgradePauseMs = 10'000;
constexpr uint32_t kBefore2aMs = 20;

constexpr uint32_t kFirstSpiCheckPasses = 4;
constexpr uint32_t kSpiCheckPasses = 3;
constexpr uint32_t kReopenAttempts = 4;
constexpr uint32_t kResetsPerFault = 2;
constexpr uint32_t kFailuresPerMessage = 10;

struct Monitor {
    int capture_fd = -1;
    bool devices_ok = false;
    uint32_t reopen_attempts = 0;
    uint32_t spi_countdown = kFirstSpiCheckPasses;
    uint32_t capture_stalls = 0;
    uint32_t spi_silences = 0;
    uint32_t abnormal_2a = 0;
};

// The monitor's own: throttles one message over all its life.
constinit uint32_t g_capture_errors_left = kFailuresPerMessage;

// A fault more; counting stops where the monitor has given up.
void count_fault(uint32_t& faults) {
    if (faults <= kResetsPerFault) ++faults;
}

bool has_given_up(uint32_t faults) { return faults > kResetsPerFault; }

void reset_and_hold() {
    dm365_reset_pulse(kResetLine);
    hold_for_boot(spi0_fd);
}

int open_reporting(const char* path) {
    const int fd = open_file(path, O_RDONLY);
    if (fd < 0) diag::out("[ERROR]: open %s fail\n", path);
    return fd;
}

// A file that is there but cannot be read is no reason to reset the co-processor. The main thread shares
// errno and may have written it meanwhile, so a look that needs none must agree.
bool is_version_missing() {
    const Fd file(open_file(dm365::kVersionPath, O_RDONLY));
    return !file.is_open() && errno == ENOENT && access(dm365::kVersionPath, F_OK) < 0;
}

// A record that is missing is asked for, and the co-processor started afresh, but never while it is upgraded.
void record_version() {
    if (!is_version_missing()) return;
    uint32_t status = 0;
    dm365_spi_query(spi0_fd, &status, dm365::kQueryVersion);
    if (status != dm365::kUpgrading) reset_and_hold();
}

void judge_devices(Monitor& monitor) { monitor.devices_ok = monitor.capture_fd > 0 && spi0_fd > 0; }

void start_up(Monitor& monitor) {
    sleep_ms(kStartDelayMs);
    monitor.capture_fd = open_reporting(device::kVideoFrontEnd);
    spi0_fd = open_reporting(dm365::kLinkDevice);
    record_version();
    judge_devices(monitor);
}

void reopen_devices(Monitor& monitor) {
    open_once(monitor.capture_fd, device::kVideoFrontEnd, O_RDWR);
    if (spi0_fd < 0) spi0_fd = open_file(dm365::kLinkDevice, O_RDONLY);
    judge_devices(monitor);
    ++monitor.reopen_attempts;
}

void report_capture_error(int result) {
    if (g_capture_errors_left > 0) {
        --g_capture_errors_left;
        return;
    }
    diag::out("[ERROR]: ioctl ==>: read vpfe inttrupts fail, ret = %d\n", result);
    g_capture_errors_left = kFailuresPerMessage;
}

bool is_capture_stalled(int fd) {
    uint8_t record[20];
    memset(record, 0x61, sizeof record);
    const int result = control(fd, kReadCaptureInterrupts, record);
    if (result < 0) {
        report_capture_error(result);
        return false;
    }
    return load_le<uint32_t>(record) == kCaptureStalled;
}

bool is_upgrading() {
    uint32_t status = 0;
    control(spi0_fd, dm365::kReadStatus, &status);
    if (status != dm365::kUpgrading) return false;
    diag::line("now  system is upograde");
    sleep_ms(kCaptureUpgradePauseMs);
    return true;
}

// False when a reset and its 45 s have taken up this pass. The third stall in a row still pulses
// the reset line.
bool check_capture(Monitor& monitor) {
    if (!is_capture_stalled(monitor.capture_fd) || is_upgrading()) {
        monitor.capture_stalls = 0;
        return true;
    }
    if (!has_given_up(monitor.capture_stalls)) {
        diag::line("**********: sentrel reboot dm365 ***********");
        dm365_reset_pulse(kResetLine);
    }
    count_fault(monitor.capture_stalls);
    if (has_given_up(monitor.capture_stalls)) {
        diag::line("====>:   sentrel: May be DM365 Broken:  <=======");
        return true;
    }
    hold_for_boot(spi0_fd);
    return false;
}

// False when a reset and its 45 s have taken up this pass.
bool check_liveness(Monitor& monitor) {
    uint32_t answer = 0;
    dm365_spi_query(spi0_fd, &answer, dm365::kQueryAlive);
    if (answer == dm365::kUpgrading) {
        diag::line("-------------:dm365 UPGRADING: step 1-----------------");
        sleep_ms(kUpgradePauseMs);
        return true;
    }
    if (answer == dm365::kAlive) {
        monitor.spi_silences = 0;
        return true;
    }
    count_fault(monitor.spi_silences);
    if (has_given_up(monitor.spi_silences)) {
        diag::line("=============<  SPI alway be Problem>================");
        return true;
    }
    diag::line("=========>sentrel:  SPI NOT ALIVE , reset DM365<=================");
    reset_and_hold();
    return false;
}

void check_2a(Monitor& monitor) {
    sleep_ms(kBefore2aMs);
    uint32_t answer = 0;
    dm365_spi_query(spi0_fd, &answer, dm365::kQuery2a);
    if (answer == dm365::kUpgrading) {
        diag::line("-------------:dm365 UPGRADING: step 2-----------------");
        sleep_ms(kUpgradePauseMs);
        return;
    }
    if (answer != dm365::kAbnormal2a) {
        monitor.abnormal_2a = 0;
        return;
    }
    count_fault(monitor.abnormal_2a);
    if (has_given_up(monitor.abnormal_2a)) {
        diag::line("=============< DM365 2A always be Problem>===================");
        return;
    }
    diag::line("++++++++++++:  dm365: 2A is abnormal ++++++++++++++++");
    reset_and_hold();
}

void pass(Monitor& monitor) {
    sleep_ms(kPassMs);
    if (!monitor.devices_ok) {
        if (monitor.reopen_attempts == kReopenAttempts) return;
        reopen_devices(monitor);
    } else if (!check_capture(monitor)) {
        return;
    }
    if (monitor.spi_countdown > 0) --monitor.spi_countdown;
    if (monitor.spi_countdown > 0 || !monitor.devices_ok) return;
    if (check_liveness(monitor)) check_2a(monitor);
    monitor.spi_countdown = kSpiCheckPasses;
}

}  // namespace

int dm365_monitor_thread(void* /*unused*/) {
    Monitor monitor;
    start_up(monitor);
    for (;;) pass(monitor);
}

}  // namespace sentrel
