// Threads, tasks and processes, and what they would do to the machine.
#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <cstdarg>

#include "interpose.h"

namespace sim {
namespace {

// Whether the thread sanitizer's wrapper takes the program's calls first. Preloaded, the board is in front of
// it.
bool behind_wrapper(const char* name) {
    Dl_info outermost{}, own{};
    dladdr(dlsym(RTLD_DEFAULT, name), &outermost);
    dladdr(reinterpret_cast<void*>(&clone_task::create), &own);
    return clock::under_thread_sanitizer() && outermost.dli_fbase != own.dli_fbase;
}

// The wrapper of clone() makes its child as fork() does, which is wrong for a thread: past it.
void unwrap(int (*&function)(void*), void*& argument) {
    struct Wrapped {
        int (*function)(void*);
        void* argument;
    };
    if (!behind_wrapper("clone")) return;
    const Wrapped wrapped = *static_cast<Wrapped*>(argument);
    function = wrapped.function;
    argument = wrapped.argument;
}

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

}  // namespace
}  // namespace sim

using namespace sim;

EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                          void* argument) noexcept {
    return static_cast<int>(aside([&]() -> int64_t {
        // Threads that are none of the program's; the sanitizer's own comes without attributes.
        if (clone_task::making_thread() || (attributes == nullptr && behind_wrapper("pthread_create"))) {
            return real.pthread_create(thread, attributes, start, argument);
        }
        const int64_t fault = script::fault_of("thread", "pthread_create");
        const int error =
            fault < 0 ? static_cast<int>(-fault) : clock::create(thread, attributes, start, argument);
        Line("thread").add(" start").failure(-error);
        return error;
    }));
}

EXPORT int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    find_real_functions();
    if (!clock::shared()) return real.pthread_mutex_lock(mutex);
    return static_cast<int>(aside([&] { return clock::lock_mutex(mutex); }));
}

EXPORT int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    find_real_functions();
    return clock::unlock_mutex(mutex);
}

EXPORT int clone(int (*function)(void*), void* stack, int flags, void* argument, ...) noexcept {
    return call([&]() -> int64_t {
        if ((flags & CLONE_VM) == 0) return or_errno(real.clone(function, stack, flags, argument));
        const int64_t fault = script::fault_of("clone", "clone");
        if (fault >= 0) unwrap(function, argument);
        const int64_t result = fault < 0 ? fault : clone_task::create(function, stack, flags, argument);
        Line("clone").add(" task").failure(result);
        return result;
    });
}

// --- Processes

EXPORT int system(const char* command) {
    return command == nullptr ? 1 : call([&] { return script::run_command(command); });
}

// A process that ends this way leaves no board behind either. (A vforked child only looks like one.)
EXPORT void _exit(int code) {
    board::clean_up();
    for (;;) real.syscall(SYS_exit_group, code);
}

// A vforked child that wants a shell: the board's commands are that.
EXPORT int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
    find_real_functions();
    if (strcmp(path, "/bin/sh") != 0) return real.execve(path, arguments, environment);
    const int status = system(arguments[2]);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

// --- The machine itself

EXPORT void sync() noexcept { recorded("sync"); }
EXPORT int umount(const char*) noexcept { return recorded("umount"); }
EXPORT int umount2(const char*, int) noexcept { return recorded("umount"); }
EXPORT int mount(const char*, const char*, const char*, unsigned long, const void*) noexcept {
    return recorded("mount");
}
EXPORT int reboot(int) noexcept { return recorded("reboot"); }

EXPORT int settimeofday(const timeval*, const struct timezone*) noexcept {
    return recorded("settimeofday", EINVAL);
}
EXPORT int clock_settime(clockid_t, const timespec*) noexcept { return recorded("clock_settime", EPERM); }

EXPORT long syscall(long number, ...) noexcept {
    va_list arguments;
    va_start(arguments, number);
    long a[6];
    for (long& each : a) each = va_arg(arguments, long);
    va_end(arguments);
    find_real_functions();
    const bool changes_machine = number == SYS_reboot || number == SYS_sync || number == SYS_mount ||
                                 number == SYS_umount2 || number == SYS_clock_settime;
    if (changes_machine) return recorded("syscall", EPERM);
    if (number != SYS_settimeofday) return real.syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    return call([&] {
        return set_clock(reinterpret_cast<KernelTime*>(a[0]), reinterpret_cast<struct timezone*>(a[1]));
    });
}
