// What would reach the machine itself: recorded, and not done.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdarg>
#include <iterator>

#include "interpose.h"

namespace sim {
namespace {

// A call's parameters as they lie in the registers, whatever they are.
using Parameters = long[6];

// What the machine does after all. Test programs have files and tools beside the board.
bool never(const Parameters&) { return false; }
bool for_tests(const Parameters&) { return !board::is_launched(); }
bool for_reading(const Parameters& p) {
    const char* mode = reinterpret_cast<const char*>(p[1]);
    return !board::is_launched() || strpbrk(mode, "wa+") == nullptr;
}

long stand_in(const char* name, bool (*is_passed)(const Parameters&), int error, long failed,
              const Parameters& p) {
    board::boot();
    if (!is_passed(p)) return recorded(name, error) == 0 ? 0 : failed;
    auto* function = reinterpret_cast<long (*)(long, long, long, long, long, long)>(dlsym(RTLD_NEXT, name));
    return function(p[0], p[1], p[2], p[3], p[4], p[5]);
}

// Beside the clock, which has a stand-in of its own. Nothing else may come past the board.
constexpr long kPassedCalls[] = {SYS_futex, SYS_getpid, SYS_gettid, SYS_getrandom, SYS_sched_yield};

int64_t set_clock(const timeval* time, const struct timezone* zone) {
    const int64_t fault = script::fault_of("clock", "settimeofday");
    Line line("clock settimeofday");
    if (time != nullptr) line.add(" %lld", static_cast<long long>(time->tv_sec));
    if (zone != nullptr) line.add(" west %d", zone->tz_minuteswest);
    line.failure(fault);
    return fault < 0 ? fault : 0;
}

bool is_child(pid_t process) {
    siginfo_t info{};
    return process > 0 && waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0;
}

}  // namespace
}  // namespace sim

using namespace sim;

// Under names of their own for the compiler, which knows better parameters for some.
#define STAND_IN(name, is_passed, error, failed)                                              \
    extern "C" SIM_EXPORT long sim_##name(long, long, long, long, long, long) __asm__(#name); \
    long sim_##name(long a, long b, long c, long d, long e, long f) {                         \
        return stand_in(#name, is_passed, error, failed, {a, b, c, d, e, f});                 \
    }
#define DONE(name) STAND_IN(name, never, 0, 0)
#define NEVER(name) STAND_IN(name, never, EPERM, -1)
#define FOR_TESTS(name) STAND_IN(name, for_tests, EPERM, -1)

// clang-format off
DONE(sync) DONE(mount) DONE(umount) DONE(umount2) DONE(reboot)

STAND_IN(settimeofday, never, EINVAL, -1)
NEVER(clock_settime) NEVER(clock_adjtime) NEVER(adjtimex) NEVER(ntp_adjtime) NEVER(adjtime)
NEVER(sethostname) NEVER(setdomainname) NEVER(sethostid) NEVER(setns) NEVER(chroot) NEVER(pivot_root)
NEVER(swapon) NEVER(swapoff) NEVER(acct) NEVER(quotactl) NEVER(klogctl) NEVER(vhangup) NEVER(syslog)
NEVER(init_module) NEVER(delete_module) NEVER(iopl) NEVER(ioperm) NEVER(ptrace) NEVER(process_vm_writev)
NEVER(killpg) NEVER(sigqueue) NEVER(pidfd_send_signal) NEVER(open_by_handle_at)

FOR_TESTS(execv) FOR_TESTS(execvp) FOR_TESTS(execvpe) FOR_TESTS(execveat) FOR_TESTS(fexecve)
FOR_TESTS(execl) FOR_TESTS(execlp) FOR_TESTS(execle)
STAND_IN(posix_spawn, for_tests, EPERM, EPERM) STAND_IN(posix_spawnp, for_tests, EPERM, EPERM)
STAND_IN(popen, for_tests, EPERM, 0)

STAND_IN(fopen, for_reading, EPERM, 0) STAND_IN(fopen64, for_reading, EPERM, 0)
STAND_IN(freopen, for_tests, EPERM, 0) STAND_IN(freopen64, for_tests, EPERM, 0)
FOR_TESTS(openat) FOR_TESTS(openat64) FOR_TESTS(open64) FOR_TESTS(creat) FOR_TESTS(creat64)
FOR_TESTS(mkstemp) FOR_TESTS(shm_open) FOR_TESTS(mq_open) FOR_TESTS(truncate) FOR_TESTS(truncate64)
FOR_TESTS(link) FOR_TESTS(linkat) FOR_TESTS(symlink) FOR_TESTS(symlinkat) FOR_TESTS(renameat)
FOR_TESTS(renameat2) FOR_TESTS(remove) FOR_TESTS(rmdir) FOR_TESTS(unlinkat) FOR_TESTS(mkdirat)
FOR_TESTS(mknod) FOR_TESTS(mknodat) FOR_TESTS(mkfifo) FOR_TESTS(chmod) FOR_TESTS(fchmodat)
FOR_TESTS(chown) FOR_TESTS(lchown) FOR_TESTS(fchownat) FOR_TESTS(utime) FOR_TESTS(utimes)
FOR_TESTS(utimensat) FOR_TESTS(setxattr) FOR_TESTS(lsetxattr) FOR_TESTS(removexattr)
    // clang-format on

    EXPORT long syscall(long number, ...) noexcept {
    va_list arguments;
    va_start(arguments, number);
    long a[6];
    for (long& each : a) each = va_arg(arguments, long);
    va_end(arguments);
    find_real_functions();
    if (std::find(std::begin(kPassedCalls), std::end(kPassedCalls), number) != std::end(kPassedCalls)) {
        return real.syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    }
    return call([&]() -> int64_t {
        if (number == SYS_settimeofday) {
            return set_clock(reinterpret_cast<timeval*>(a[0]), reinterpret_cast<struct timezone*>(a[1]));
        }
        Line("syscall").add(" %ld", number).failure(-EPERM);
        return -EPERM;
    });
}

// A vforked child that wants a shell: the board's commands are that.
EXPORT int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
    find_real_functions();
    if (strcmp(path, "/bin/sh") != 0) {
        return board::is_launched() ? recorded("execve", EPERM) : real.execve(path, arguments, environment);
    }
    const int status = system(arguments[2]);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

EXPORT int kill(pid_t process, int number) noexcept {
    find_real_functions();
    const bool own = process == getpid() || is_child(process);
    return own ? real.kill(process, number) : recorded("kill", EPERM);
}
