#include "daemon/clock_sync.h"

#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "base/clock.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "libmarl/upgrade_flag.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr int kTries = 200;
constexpr uint32_t kTryPauseMs = 10;

std::optional<rtc_time> read_rtc(int fd) {
    rtc_time reading{};
    if (control(fd, RTC_RD_TIME, &reading) < 0) return std::nullopt;
    return reading;
}

// Reads until the seconds change; the last reading, or nothing when every one failed.
std::optional<rtc_time> wait_for_next_second(int fd) {
    const rtc_time first = read_rtc(fd).value_or(rtc_time{});
    std::optional<rtc_time> last;
    for (int i = 0; i < kTries; ++i) {
        if (const auto reading = read_rtc(fd)) {
            last = reading;
            if (reading->tm_sec != first.tm_sec) break;
        } else {
            diag::line("error RTC_RD");
        }
        sleep_ms(kTryPauseMs);
    }
    return last;
}

// The driver's record is shorter than struct tm. Its time is local time; mktime finds the days of the week and the
// year itself.
time_t to_epoch(const rtc_time& reading) {
    tm broken_down{};
    broken_down.tm_sec = reading.tm_sec;
    broken_down.tm_min = reading.tm_min;
    broken_down.tm_hour = reading.tm_hour;
    broken_down.tm_mday = reading.tm_mday;
    broken_down.tm_mon = reading.tm_mon;
    broken_down.tm_year = reading.tm_year;
    broken_down.tm_isdst = reading.tm_isdst;
    return mktime(&broken_down);
}

// What the system call takes, whatever the width of the C library's time_t.
struct KernelTime {
    long seconds;
    long microseconds;
};

// One call for both: the C library refuses that, and two calls make the kernel warp the clock by the zone.
bool set_clock(time_t seconds, const struct timezone& zone) {
    const KernelTime now{static_cast<long>(seconds), 0};
    if (now.seconds != seconds) return false;
    return syscall(SYS_settimeofday, &now, &zone) == 0;
}

}  // namespace

void rtc_to_system_clock() {
    if (check_upgrade_map() != 0) {
        diag::line("==>hwclock skip");
        return;
    }
    const Fd rtc(open_file(device::kRtc, O_RDONLY));
    if (!rtc.is_open()) {
        diag::out("open %s failed\n", device::kRtc);
        return;
    }
    // As it stands before this conversion: the C library loads the zone with the first mktime.
    const struct timezone zone { static_cast<int>(ldiv(timezone, 60).quot - daylight * 60L), 0 };
    const auto reading = wait_for_next_second(rtc.get());
    if (!reading) return;
    if (!set_clock(to_epoch(*reading), zone)) diag::line("settimeofday failed");
}

}  // namespace sentrel
