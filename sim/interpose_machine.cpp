// What would reach the machine itself: recorded, and not done.
#include <dlfcn.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>

#include <algorithm>
#include <bit>
#include <iterator>

#include "interpose.h"

namespace sim {
namespace {

// The parameters are handed on as they lie in the registers, whatever they are.
template <class... Word>
long stand_in(const char* name, bool for_tests, int error, long failed, Word... words) {
    board::boot();
    if (!for_tests || board::is_launched()) return recorded(name, error) == 0 ? 0 : failed;
    return reinterpret_cast<long (*)(Word...)>(dlsym(RTLD_NEXT, name))(words...);
}

// Beside the clock, which has a stand-in of its own. Nothing else may come past the board.
constexpr long kPassedCalls[] = {SYS_futex, SYS_getpid, SYS_gettid, SYS_getrandom, SYS_sched_yield};

// The system call's own record, which is no timeval where the C library counts in 64 bits and a long has 32.
struct KernelTime {
    long seconds;
    long microseconds;
};

int64_t set_clock(const KernelTime* time, const struct timezone* zone) {
    const int64_t fault = script::fault_of("clock", "settimeofday");
    Line line("clock settimeofday");
    if (time != nullptr) line.add(" %lld", static_cast<long long>(time->seconds));
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
#define STAND_IN(name, for_tests, error, failed)                                              \
    extern "C" SIM_EXPORT long sim_##name(long, long, long, long, long, long) __asm__(#name); \
    long sim_##name(long a, long b, long c, long d, long e, long f) {                         \
        return stand_in(#name, for_tests, error, failed, a, b, c, d, e, f);                   \
    }
#define DONE(name) STAND_IN(name, false, 0, 0)
#define NEVER(name) STAND_IN(name, false, EPERM, -1)
// Test programs have files and tools beside the board; launched ones do without.
#define FOR_TESTS(name) STAND_IN(name, true, EPERM, -1)
#define FOR_TESTS_OR_NULL(name) STAND_IN(name, true, EPERM, 0)

extern "C" SIM_EXPORT long sim_syscall(long, long, long, long, long, long, long) __asm__("syscall");
long sim_syscall(long number, long a, long b, long c, long d, long e, long f) {
    find_real_functions();
    if (std::find(std::begin(kPassedCalls), std::end(kPassedCalls), number) != std::end(kPassedCalls)) {
        return real.syscall(number, a, b, c, d, e, f);
    }
    return call([&]() -> int64_t {
        if (number == SYS_settimeofday) {
            return set_clock(std::bit_cast<KernelTime*>(a), std::bit_cast<struct timezone*>(b));
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

// clang-format off
#define EACH_DONE(X) X(sync) X(mount) X(umount) X(umount2) X(reboot)
#define EACH_NEVER(X) \
    X(clock_settime) X(clock_adjtime) X(adjtimex) X(ntp_adjtime) X(adjtime) X(sethostname) X(setdomainname) \
    X(sethostid) X(setns) X(chroot) X(pivot_root) X(swapon) X(swapoff) X(acct) X(quotactl) X(klogctl) X(vhangup) \
    X(syslog) X(init_module) X(delete_module) X(iopl) X(ioperm) X(ptrace) X(process_vm_writev) X(killpg) \
    X(sigqueue) X(pidfd_send_signal) X(open_by_handle_at)
#define EACH_FOR_TESTS(X) \
    X(execv) X(execvp) X(execvpe) X(execveat) X(fexecve) X(execl) X(execlp) X(execle) X(openat) X(openat64) \
    X(open64) X(creat) X(creat64) X(mkstemp) X(shm_open) X(mq_open) X(truncate) X(truncate64) X(link) X(linkat) \
    X(symlink) X(symlinkat) X(renameat) X(renameat2) X(remove) X(rmdir) X(unlinkat) X(mkdirat) X(mknod) \
    X(mknodat) X(mkfifo) X(chmod) X(fchmodat) X(chown) X(lchown) X(fchownat) X(utime) X(utimes) X(utimensat) \
    X(setxattr) X(lsetxattr) X(removexattr)
#define EACH_FOR_TESTS_OR_NULL(X) X(popen) X(fopen) X(fopen64) X(freopen) X(freopen64)
// clang-format on

EACH_DONE(DONE)
EACH_NEVER(NEVER)
STAND_IN(settimeofday, false, EINVAL, -1)
EACH_FOR_TESTS(FOR_TESTS)
EACH_FOR_TESTS_OR_NULL(FOR_TESTS_OR_NULL)
STAND_IN(posix_spawn, true, EPERM, EPERM)
STAND_IN(posix_spawnp, true, EPERM, EPERM)
