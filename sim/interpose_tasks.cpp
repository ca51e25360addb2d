// Threads, tasks, processes, and how they wait.
#include <dlfcn.h>
#include <sys/syscall.h>

#include <algorithm>

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

int do_sleep(int64_t duration) {
    return call([&] {
        const int64_t fault = script::fault_of("*", "sleep");
        if (fault >= 0) clock::sleep(duration);
        return std::min<int64_t>(fault, 0);
    });
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
        return -told("thread", "pthread_create", "start", [&] {
            errno = clock::create(thread, attributes, start, argument);
            return errno == 0 ? 0 : -1;
        });
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
        return told("clone", "clone", "task", [&] {
            unwrap(function, argument);
            return clone_task::create(function, stack, flags, argument);
        });
    });
}

// --- Processes

// A child on the caller's stack: who calls vfork() must be who it returns to, so the board only says where to go on.
extern "C" __attribute__((visibility("hidden"))) void* vfork_to_call() {
    find_real_functions();
    const int64_t fault = aside([] { return script::fault_of("process", "vfork"); });
    if (fault >= 0) return reinterpret_cast<void*>(real.vfork);
    errno = static_cast<int>(-fault);
    return reinterpret_cast<void*>(+[] { return -1; });
}
asm(".text; .globl vfork; .type vfork, %function; vfork:");
#if defined(__x86_64__)
asm("sub $8, %rsp; call vfork_to_call; add $8, %rsp; jmp *%rax");
#else
asm("push {r3, lr}; bl vfork_to_call; pop {r3, lr}; bx r0");
#endif

EXPORT int system(const char* command) {
    return command == nullptr ? 1 : call([&] { return script::run_command(command); });
}

// A process that ends this way leaves no board behind either. (A vforked child only looks like one.)
EXPORT void _exit(int code) {
    board::boot();
    board::clean_up();
    for (;;) real.syscall(SYS_exit_group, code);
}

// --- Waiting

EXPORT int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout) {
    find_real_functions();
    if (timeout == nullptr || count > 0) return real.select(count, in, out, except, timeout);
    const int result = do_sleep(timeout->tv_sec * clock::kSecond + timeout->tv_usec * 1000LL);
    if (result == 0) *timeout = {};
    return result;
}

EXPORT int usleep(useconds_t micros) { return do_sleep(int64_t{micros} * 1000); }
