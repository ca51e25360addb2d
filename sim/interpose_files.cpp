// The functions of the C library that the board puts itself in front of.
#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdarg>

#include "board.h"
#include "clone.h"
#include "devices.h"
#include "journal.h"
#include "real.h"
#include "script.h"
#include "sim.h"
#include "uevent.h"

#define EXPORT extern "C" SIM_EXPORT

extern "C" {
__attribute__((weak)) void AnnotateIgnoreReadsBegin(const char* file, int line);
__attribute__((weak)) void AnnotateIgnoreReadsEnd(const char* file, int line);
__attribute__((weak)) void AnnotateIgnoreWritesBegin(const char* file, int line);
__attribute__((weak)) void AnnotateIgnoreWritesEnd(const char* file, int line);
}

namespace sim {
namespace {

using board::OpenFile;
using record::Line;

unsigned opens = 0;

// The thread sanitizer sees what the board asks of the C library, but not the baton that orders it.
struct UnseenBySanitizer {
    UnseenBySanitizer() {
        if (AnnotateIgnoreReadsBegin == nullptr) return;
        AnnotateIgnoreReadsBegin("", 0);
        AnnotateIgnoreWritesBegin("", 0);
    }
    ~UnseenBySanitizer() {
        if (AnnotateIgnoreReadsEnd == nullptr) return;
        AnnotateIgnoreWritesEnd("", 0);
        AnnotateIgnoreReadsEnd("", 0);
    }
};

// On the board's stack, and without a trace in errno.
template <class Body>
int64_t aside(Body body) {
    const int saved = errno;
    int64_t result = 0;
    auto whole = [&] {
        const UnseenBySanitizer unseen;
        board::boot();
        clock::enter();
        result = body();
    };
    clone_task::on_board_stack(whole);
    errno = saved;
    return result;
}

// The body answers as the kernel does.
template <class Result = int, class Body>
Result call(Body body) {
    const int64_t result = aside(body);
    if (result >= 0 || result < -4095) return static_cast<Result>(result);
    errno = static_cast<int>(-result);
    return -1;
}

// Beside opening and writing, what changes files.
bool is_change(const char* op) {
    return strcmp(op, "ftruncate") == 0 || strcmp(op, "unlink") == 0 || strcmp(op, "rename") == 0;
}

template <class Body>
int64_t unless_faulty(const char* what, const char* op, Body body) {
    const int64_t fault = script::fault_of(what, op);
    if (fault < 0) return fault;
    if (is_change(op)) script::count_change();
    return or_errno(body());
}

// How much of size passes: a fault that is no error number is a number of bytes.
size_t bounded(size_t size, int64_t fault) {
    return fault >= 0 && static_cast<uint64_t>(fault) < size ? static_cast<size_t>(fault) : size;
}

// --- Files and devices

int64_t console(const char* who, const void* data, size_t size, int fd) {
    const int64_t fault = script::fault_of(who, "write");
    size = bounded(size, fault);
    const int64_t result = fault < 0 ? fault : or_errno(real.write(fd, data, size));
    Line(who).quoted(static_cast<const char*>(data), size).failure(result);
    return result;
}

// A read or write of a descriptor of the board: faults, then the model or the real file.
template <class Kernel>
int64_t transfer(const OpenFile& file, const char* op, void* data, size_t size, Kernel kernel) {
    const bool reading = op[0] == 'r';
    const devices::Transfer model = reading ? file.model->read : file.model->write;
    const unsigned address = size > 0 ? *static_cast<uint8_t*>(data) : 0;
    const int64_t fault = script::fault_of(file.name, op);
    if (fault >= 0 && !reading && file.model->lasting) script::count_change();
    size = bounded(size, fault);
    const int64_t result = fault < 0          ? fault
                           : model != nullptr ? model(static_cast<uint8_t*>(data), size)
                                              : or_errno(kernel(size));
    Line line(file.name);
    line.add(" %s %lld", op, result < 0 ? static_cast<long long>(size) : static_cast<long long>(result));
    if (result > 0) line.bytes(data, static_cast<size_t>(result));
    if (reading && file.model->address != nullptr) line.add(" (%s %u)", file.model->address, address);
    line.failure(result);
    return result;
}

template <class Kernel>
ssize_t do_transfer(const char* op, int fd, const void* data, size_t size, Kernel kernel) {
    return call<ssize_t>([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        const bool to_console = (fd == 1 || fd == 2) && op[0] == 'w';
        if (file == nullptr && to_console) return console(fd == 1 ? "out" : "err", data, size, fd);
        if (file == nullptr) return or_errno(kernel(size));
        const int64_t result = transfer(*file, op, const_cast<void*>(data), size, kernel);
        script::run_due();  // it may have reset the board
        return result;
    });
}

// A call on a descriptor that is journaled as its name and one number.
template <class Result = int, class Kernel>
Result on_file(const char* op, int fd, int64_t number, Kernel kernel) {
    return call<Result>([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        if (file == nullptr) return or_errno(kernel());
        const int64_t result = unless_faulty(file->name, op, kernel);
        Line(file->name)
            .add(" %s %lld", strcmp(op, "lseek") == 0 ? "seek" : op, static_cast<long long>(number))
            .failure(result);
        return result;
    });
}

template <class Kernel>
int by_path(const char* op, const char* path, Kernel kernel) {
    return call([&]() -> int64_t {
        char there[board::kPathSize];
        if (board::place(path, there) == nullptr) return or_errno(kernel(path));
        const int64_t result = unless_faulty(path, op, [&] { return kernel(there); });
        Line(path).add(" %s", op).failure(result);
        return result;
    });
}

// --- Time, threads, the machine itself

int do_sleep(int64_t duration) {
    return call([&] {
        const int64_t fault = script::fault_of("*", "sleep");
        if (fault >= 0) clock::sleep(duration);
        return std::min<int64_t>(fault, 0);
    });
}

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

int recorded(const char* what, int error = 0) {
    return call([&] {
        Line(what).failure(-error);
        return -error;
    });
}

int64_t set_clock(const timeval* time, const struct timezone* zone) {
    const int64_t fault = script::fault_of("clock", "settimeofday");
    Line line("clock settimeofday");
    if (time != nullptr) line.add(" %lld", static_cast<long long>(time->tv_sec));
    if (zone != nullptr) line.add(" west %d", zone->tz_minuteswest);
    line.failure(fault);
    return fault < 0 ? fault : 0;
}

}  // namespace

bool in_place() {
    const unsigned before = opens;
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) ::close(fd);
    return opens != before;
}

}  // namespace sim

using namespace sim;

// --- Descriptors

EXPORT int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return call([&]() -> int64_t {
        ++opens;
        char there[board::kPathSize];
        if (board::place(path, there) == nullptr) return or_errno(real.open(path, flags, mode));
        const int64_t result = unless_faulty(path, "open", [&] {
            if ((flags & (O_CREAT | O_TRUNC)) != 0) script::count_change();
            return real.open(there, flags, mode);
        });
        if (result >= 0) board::track(static_cast<int>(result), path);
        static constexpr const char* kAccess[] = {"r", "w", "rw", ""};
        Line line(path);
        line.add(" open %s%s", kAccess[flags & O_ACCMODE], (flags & O_CREAT) != 0 ? " create" : "");
        line.add("%s%s", (flags & O_TRUNC) != 0 ? " trunc" : "", (flags & O_APPEND) != 0 ? " append" : "");
        line.failure(result);
        return result;
    });
}

EXPORT int close(int fd) {
    return call([&] {
        if (const OpenFile* file = board::tracked(fd)) Line(file->name).add(" close");
        board::forget(fd);
        return or_errno(real.close(fd));
    });
}

#define TRANSFER(name, op, parameters, arguments)                                                 \
    EXPORT ssize_t name parameters {                                                              \
        return do_transfer(op, fd, data, size, [&](size_t most) { return real.name arguments; }); \
    }
TRANSFER(read, "read", (int fd, void* data, size_t size), (fd, data, most))
TRANSFER(pread, "read", (int fd, void* data, size_t size, off_t offset), (fd, data, most, offset))
TRANSFER(write, "write", (int fd, const void* data, size_t size), (fd, data, most))
TRANSFER(pwrite, "write", (int fd, const void* data, size_t size, off_t offset), (fd, data, most, offset))
TRANSFER(sendto, "sendto",
         (int fd, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length),
         (fd, data, most, flags, to, length))

// What the C library's checking headers may make of open().
EXPORT int __open_2(const char* path, int flags) { return open(path, flags); }

EXPORT int ioctl(int fd, unsigned long number, ...) noexcept {
    const auto request = static_cast<uint32_t>(number);
    va_list arguments;
    va_start(arguments, number);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return call([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        // A local socket would do to reach the machine's network.
        if (file == nullptr && request >> 8 == 0x89 && !devices::state.network) return -EAFNOSUPPORT;
        if (file == nullptr) return or_errno(real.ioctl(fd, request, argument));
        Line line(file->name);
        line.add(" ioctl 0x%x", request);
        const int64_t fault = script::fault_of(file->name, "ioctl", request);
        const int64_t result =
            fault < 0 ? fault : devices::control(*file->model, fd, request, argument, line);
        line.failure(result);
        return result;
    });
}

#define DESCRIPTOR_CALL(type, name, number, parameters, arguments)                    \
    EXPORT type name parameters noexcept {                                            \
        return on_file<type>(#name, fd, number, [&] { return real.name arguments; }); \
    }
DESCRIPTOR_CALL(off_t, lseek, offset, (int fd, off_t offset, int whence), (fd, offset, whence))
DESCRIPTOR_CALL(int, ftruncate, size, (int fd, off_t size), (fd, size))
DESCRIPTOR_CALL(int, setsockopt, option, (int fd, int level, int option, const void* value, socklen_t size),
                (fd, level, option, value, size))

EXPORT int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    return on_file("bind", fd, address->sa_family,
                   [&] { return uevent::is_open(fd) ? 0 : real.bind(fd, address, length); });
}

// Also called by sanitizers before anything else is there.
EXPORT void* mmap64(void* at, size_t size, int protection, int flags, int fd, off64_t offset) noexcept {
    find_real_functions();
    const auto map = [&] { return real.mmap64(at, size, protection, flags, fd, offset); };
    if ((flags & MAP_ANONYMOUS) != 0 || board::tracked(fd) == nullptr) return map();
    void* mapped = MAP_FAILED;
    on_file("mmap", fd, static_cast<int64_t>(size), [&] {
        mapped = map();
        return mapped == MAP_FAILED ? -1 : 0;
    });
    return mapped;
}

EXPORT void* mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    return mmap64(at, size, protection, flags, fd, offset);
}

EXPORT int socket(int domain, int type, int protocol) noexcept {
    return call([&]() -> int64_t {
        if (domain == AF_UNIX) return or_errno(real.socket(domain, type, protocol));
        const int64_t result = unless_faulty("socket", "open", [&] {
            if (domain == AF_NETLINK) return uevent::open();
            if (devices::state.network) return real.socket(domain, type, protocol);
            errno = EAFNOSUPPORT;
            return -1;
        });
        if (result >= 0) board::track(static_cast<int>(result), "socket");
        const char* name = domain == AF_INET ? "inet" : domain == AF_PACKET ? "packet" : "netlink";
        Line("socket").add(" open %s", name).failure(result);
        return result;
    });
}

// --- Paths

#define PATH_CALL(name, parameters, arguments)                                               \
    EXPORT int name parameters noexcept {                                                    \
        return by_path(#name, path, [&](const char* there) { return real.name arguments; }); \
    }
PATH_CALL(stat, (const char* path, struct stat* out), (there, out))
PATH_CALL(lstat, (const char* path, struct stat* out), (there, out))
PATH_CALL(access, (const char* path, int mode), (there, mode))
PATH_CALL(mkdir, (const char* path, mode_t mode), (there, mode))
PATH_CALL(unlink, (const char* path), (there))

EXPORT DIR* opendir(const char* path) {
    DIR* directory = nullptr;
    by_path("opendir", path, [&](const char* there) {
        directory = real.opendir(there);
        return directory != nullptr ? 0 : -1;
    });
    return directory;
}

EXPORT int rename(const char* path, const char* to) noexcept {
    char target[board::kPathSize];
    if (board::place(to, target) != nullptr) to = target;
    return by_path("rename", path, [&](const char* there) { return real.rename(there, to); });
}

// --- Time

EXPORT int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout) {
    find_real_functions();
    if (timeout == nullptr || count > 0) return real.select(count, in, out, except, timeout);
    const int result = do_sleep(timeout->tv_sec * clock::kSecond + timeout->tv_usec * 1000LL);
    if (result == 0) *timeout = {};
    return result;
}

EXPORT int usleep(useconds_t micros) { return do_sleep(int64_t{micros} * 1000); }

// --- Threads and tasks

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

// --- The machine itself

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

// What would change the machine: recorded, never done.
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
        return set_clock(reinterpret_cast<timeval*>(a[0]), reinterpret_cast<struct timezone*>(a[1]));
    });
}
