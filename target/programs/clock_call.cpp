// Sets the clock of the machine that it runs on, for real, by what the board's clock says: as the daemon does, twice, and
// each time by one system call for the time and the zone together. Two would make the kernel warp the clock.
#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "base/devices.h"
#include "daemon/clock_sync.h"

namespace {

constexpr int kSyncs = 2;
constexpr int kMinutesWest = -180;

constexpr long kClockCalls[] = {
    SYS_settimeofday,    SYS_clock_settime,   SYS_adjtimex, SYS_clock_adjtime,
#ifdef SYS_clock_settime64
    SYS_clock_settime64, SYS_clock_adjtime64,
#endif
};

struct Calls {
    int whole = 0;  // with the time and the zone
    int other = 0;
};

void count(const __ptrace_syscall_info& info, Calls& calls) {
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return;
    const auto number = static_cast<long>(info.entry.nr);
    if (std::find(std::begin(kClockCalls), std::end(kClockCalls), number) == std::end(kClockCalls)) return;
    const bool is_whole = number == SYS_settimeofday && info.entry.args[0] != 0 && info.entry.args[1] != 0;
    ++(is_whole ? calls.whole : calls.other);
}

// Runs the work in a child, and sees its calls.
Calls calls_of(void (*work)()) {
    const pid_t child = fork();
    if (child == 0) {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        work();
        _exit(0);
    }
    Calls calls;
    int status = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    while (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 && waitpid(child, &status, 0) == child &&
           WIFSTOPPED(status)) {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof info, &info) > 0) count(info, calls);
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) calls.other = -1;
    return calls;
}

// What the board's clock says, which is local time.
time_t board_time() {
    rtc_time reading{};
    const int fd = open(marl::device::kRtc, O_RDONLY);
    if (fd < 0 || ioctl(fd, RTC_RD_TIME, &reading) < 0) return -1;
    close(fd);
    tm parts{};
    parts.tm_sec = reading.tm_sec;
    parts.tm_min = reading.tm_min;
    parts.tm_hour = reading.tm_hour;
    parts.tm_mday = reading.tm_mday;
    parts.tm_mon = reading.tm_mon;
    parts.tm_year = reading.tm_year;
    return timegm(&parts) + kMinutesWest * 60;
}

struct KernelTime {
    long seconds, microseconds;
};

}  // namespace

int main() {
    setenv("TZ", "BRD-3", 1);
    const Calls calls = calls_of([] {
        for (int i = 0; i < kSyncs; ++i) sentrel::rtc_to_system_clock();
    });
    KernelTime now{};
    struct timezone zone {};
    syscall(SYS_gettimeofday, &now, &zone);
    const long long off = static_cast<long long>(now.seconds) - board_time();
    printf("\nclock calls: %d with time and zone, %d others; off by %lld s, zone %d\n", calls.whole,
           calls.other, off, zone.tz_minuteswest);
    const bool right = calls.whole == kSyncs && calls.other == 0 && off >= -1 && off <= 1 &&
                       zone.tz_minuteswest == kMinutesWest;
    return right ? 0 : 1;
}
