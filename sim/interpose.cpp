// The functions of the C library that the board puts itself in front of.
#undef _FORTIFY_SOURCE
#include <dlfcn.h>
#include <sys/mount.h>
#include <sys/reboot.h>
#include <sys/syscall.h>
#include <sys/time.h>

#include <climits>
#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "board.h"
#include "clone.h"
#include "devices.h"
#include "journal.h"
#include "real.h"
#include "script.h"
#include "sim.h"

#define EXPORT extern "C" SIM_EXPORT

namespace sim {
namespace {

using board::OpenFile;
using record::Line;

unsigned opens = 0;

// The body answers as the kernel does; errno is set from that, and left alone otherwise.
template <class Body>
int64_t call(Body body) {
    const int saved = errno;
    int64_t result = 0;
    auto whole = [&] {
        board::boot();
        clock::enter();
        result = body();
    };
    clone_task::on_board_stack(whole);
    errno = result < 0 && result > -4096 ? static_cast<int>(-result) : saved;
    return result < 0 && result > -4096 ? -1 : result;
}

const char* access_name(int flags) {
    return (flags & O_ACCMODE) == O_RDONLY ? "r" : (flags & O_ACCMODE) == O_WRONLY ? "w" : "rw";
}

void journal_open(const char* path, int flags, int64_t result) {
    Line line(path);
    line.add(" open %s%s%s%s%s", access_name(flags), (flags & O_CREAT) != 0 ? " create" : "",
             (flags & O_TRUNC) != 0 ? " trunc" : "", (flags & O_EXCL) != 0 ? " excl" : "",
             (flags & O_APPEND) != 0 ? " append" : "");
    line.failure(result);
}

int64_t do_open(const char* path, int flags, mode_t mode) {
    ++opens;
    char there[board::kPathSize];
    const bool ours = board::place(path, there) != nullptr;
    int real_flags = flags | O_LARGEFILE;
    if (ours && devices::find(path) != nullptr) real_flags &= ~(O_CREAT | O_EXCL | O_TRUNC);
    const int64_t fault = ours ? script::fault_of(path, "open") : script::kNoFault;
    const int64_t result = fault < 0 ? fault : or_errno(real.open(ours ? there : path, real_flags, mode));
    if (result >= 0) board::forget(static_cast<int>(result));
    if (!ours) return result;
    if (result >= 0) board::track(static_cast<int>(result), path, flags);
    journal_open(path, flags, result);
    return result;
}

FILE* do_fopen(decltype(real.fopen) function, const char* path, const char* mode) {
    FILE* file = nullptr;
    call([&]() -> int64_t {
        char there[board::kPathSize];
        const bool ours = board::place(path, there) != nullptr;
        const int64_t fault = ours ? script::fault_of(path, "open") : script::kNoFault;
        if (fault >= 0) file = function(ours ? there : path, mode);
        const int64_t result = fault < 0 ? fault : file == nullptr ? -errno : 0;
        if (!ours) return result;
        const int kind = mode[0] == 'r' ? O_RDONLY : O_WRONLY | O_CREAT | (mode[0] == 'a' ? O_APPEND : O_TRUNC);
        journal_open(path, strchr(mode, '+') != nullptr ? (kind & ~O_ACCMODE) | O_RDWR : kind, result);
        return result;
    });
    return file;
}

// A read or write of a tracked descriptor: faults, then the model or the real file.
template <class Model, class File>
int64_t transfer(const OpenFile& file, const char* op, void* data, size_t size, Model model, File real_one) {
    const int64_t fault = script::fault_of(file.name, op);
    const unsigned address = size > 0 ? *static_cast<unsigned char*>(data) : 0;
    if (fault != script::kNoFault && fault >= 0) size = std::min(size, static_cast<size_t>(fault));
    const int64_t result = fault < 0 ? fault : model != nullptr ? model(data, size) : or_errno(real_one(size));
    Line line(file.name);
    line.add(" %s %lld", op, result < 0 ? static_cast<long long>(size) : static_cast<long long>(result));
    if (result > 0) line.bytes(data, static_cast<size_t>(result));
    if (file.model != nullptr && file.model->address != nullptr && op[0] == 'r') {
        line.add(" (%s %u)", file.model->address, address);
    }
    line.failure(result);
    return result;
}

template <class File>
ssize_t do_read(int fd, void* data, size_t size, File real_one) {
    return static_cast<ssize_t>(call([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        if (file == nullptr) return or_errno(real_one(size));
        return transfer(*file, "read", data, size, file->model != nullptr ? file->model->read : nullptr, real_one);
    }));
}

int64_t console(int fd, const void* data, size_t size) {
    const char* who = fd == 1 ? "out" : "err";
    const int64_t fault = script::fault_of(who, "write");
    if (fault != script::kNoFault && fault >= 0) size = std::min(size, static_cast<size_t>(fault));
    const int64_t result = fault < 0 ? fault : or_errno(real.write(fd, data, size));
    Line(who).quoted(static_cast<const char*>(data), size).failure(result);
    return result;
}

template <class File>
ssize_t do_write(int fd, const void* data, size_t size, File real_one) {
    const int64_t result = call([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        if (file == nullptr) return fd == 1 || fd == 2 ? console(fd, data, size) : or_errno(real_one(size));
        auto* model = file->model != nullptr ? file->model->write : nullptr;
        const int64_t done = transfer(*file, "write", const_cast<void*>(data), size, model, real_one);
        script::run_due();  // the write may have reset the board
        return done;
    });
    return static_cast<ssize_t>(result);
}

int64_t do_ioctl(int fd, uint32_t request, void* argument) {
    const OpenFile* file = board::tracked(fd);
    if (file == nullptr) return or_errno(real.ioctl(fd, request, argument));
    Line line(file->name);
    line.add(" ioctl 0x%x", request);
    int64_t result = script::fault_of(file->name, "ioctl", request);
    if (result == script::kNoFault) {
        result = file->model != nullptr ? file->model->control(fd, request, argument, line)
                                        : or_errno(real.ioctl(fd, request, argument));
    }
    line.failure(result);
    return result;
}

int64_t do_seek(int fd, int64_t offset, int whence) {
    const OpenFile* file = board::tracked(fd);
    if (file == nullptr) return or_errno(real.lseek64(fd, offset, whence));
    const int64_t fault = script::fault_of(file->name, "lseek");
    const int64_t result = fault < 0 ? fault : or_errno(real.lseek64(fd, offset, whence));
    Line(file->name).add(" seek %lld", static_cast<long long>(result < 0 ? offset : result)).failure(result);
    return result;
}

void* do_mmap(void* at, size_t size, int protection, int flags, int fd, int64_t offset) {
    const OpenFile* file = (flags & MAP_ANONYMOUS) != 0 || real.mmap64 == nullptr ? nullptr : board::tracked(fd);
    if (file == nullptr) {
        find_real_functions();
        return real.mmap64(at, size, protection, flags, fd, offset);
    }
    void* mapped = MAP_FAILED;
    call([&]() -> int64_t {
        const int64_t fault = script::fault_of(file->name, "mmap");
        if (fault >= 0) mapped = real.mmap64(at, size, protection, flags, fd, offset);
        const int64_t result = fault < 0 ? fault : mapped == MAP_FAILED ? -errno : 0;
        Line(file->name).add(" mmap %zu", size).failure(result);
        return result;
    });
    return mapped;
}

template <class Operation>
int by_path(const char* name, const char* path, Operation operation) {
    return static_cast<int>(call([&]() -> int64_t {
        char there[board::kPathSize];
        if (board::place(path, there) == nullptr) return or_errno(operation(path));
        const int64_t fault = script::fault_of(path, name);
        const int64_t result = fault < 0 ? fault : or_errno(operation(there));
        Line(path).add(" %s", name).failure(result);
        return result;
    }));
}

// What would change the machine: recorded, never done.
int recorded(const char* what, int64_t result = 0) {
    return static_cast<int>(call([&] {
        Line(what).failure(result);
        return result;
    }));
}

int64_t set_clock(const timeval* time, const struct timezone* zone) {
    const int64_t fault = script::fault_of("clock", "settimeofday");
    Line line("clock settimeofday");
    if (time != nullptr) line.add(" %lld", static_cast<long long>(time->tv_sec));
    if (zone != nullptr) line.add(" west %d", zone->tz_minuteswest);
    line.failure(fault);
    return fault < 0 ? fault : 0;
}

int64_t do_reboot(unsigned command) {
    const bool halt = command == static_cast<unsigned>(RB_HALT_SYSTEM) ||
                      command == static_cast<unsigned>(RB_POWER_OFF);
    Line("reboot").add(" 0x%x", command);
    if (halt) board::end("halt", board::kHalt);
    if (command == static_cast<unsigned>(RB_AUTOBOOT)) board::end("reset reboot", board::kReset);
    return 0;
}

int64_t nanos(const timespec& time) { return time.tv_sec * clock::kSecond + time.tv_nsec; }

int do_sleep(int64_t duration) {
    return static_cast<int>(call([&]() -> int64_t {
        const int64_t fault = script::fault_of("*", "sleep");
        if (fault < 0) return fault;
        clock::sleep(duration);
        return 0;
    }));
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

#define OPEN_LIKE(name)                                                                                        \
    EXPORT int name(const char* path, int flags, ...) {                                                        \
        va_list arguments;                                                                                     \
        va_start(arguments, flags);                                                                            \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;              \
        va_end(arguments);                                                                                     \
        return static_cast<int>(call([&] { return do_open(path, flags, mode); }));                             \
    }
OPEN_LIKE(open)
OPEN_LIKE(open64)

EXPORT int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (directory == AT_FDCWD || path[0] == '/') {
        return static_cast<int>(call([&] { return do_open(path, flags, mode); }));
    }
    return static_cast<int>(call([&] { return or_errno(real.syscall(SYS_openat, directory, path, flags, mode)); }));
}

EXPORT int __open_2(const char* path, int flags);
EXPORT int __open_2(const char* path, int flags) { return open(path, flags); }
EXPORT int __open64_2(const char* path, int flags);
EXPORT int __open64_2(const char* path, int flags) { return open(path, flags); }

EXPORT int close(int fd) {
    return static_cast<int>(call([&] {
        if (OpenFile* file = board::tracked(fd)) {
            Line(file->name).add(" close");
            board::forget(fd);
        }
        return or_errno(real.close(fd));
    }));
}

EXPORT int fclose(FILE* file) {
    find_real_functions();
    board::forget(fileno(file));
    return real.fclose(file);
}

EXPORT ssize_t read(int fd, void* data, size_t size) {
    return do_read(fd, data, size, [&](size_t most) { return real.read(fd, data, most); });
}

EXPORT ssize_t pread64(int fd, void* data, size_t size, off64_t offset) {
    return do_read(fd, data, size, [&](size_t most) { return real.pread64(fd, data, most, offset); });
}

EXPORT ssize_t write(int fd, const void* data, size_t size) {
    return do_write(fd, data, size, [&](size_t most) { return real.write(fd, data, most); });
}

EXPORT ssize_t pwrite64(int fd, const void* data, size_t size, off64_t offset) {
    return do_write(fd, data, size, [&](size_t most) { return real.pwrite64(fd, data, most, offset); });
}

EXPORT ssize_t pread(int fd, void* data, size_t size, off_t offset) { return pread64(fd, data, size, offset); }
EXPORT ssize_t pwrite(int fd, const void* data, size_t size, off_t offset) { return pwrite64(fd, data, size, offset); }

EXPORT ssize_t __read_chk(int fd, void* data, size_t size, size_t room);
EXPORT ssize_t __read_chk(int fd, void* data, size_t size, size_t room) {
    if (size > room) abort();
    return read(fd, data, size);
}

EXPORT ssize_t __pread_chk(int fd, void* data, size_t size, off_t offset, size_t room);
EXPORT ssize_t __pread_chk(int fd, void* data, size_t size, off_t offset, size_t room) {
    if (size > room) abort();
    return pread64(fd, data, size, offset);
}

EXPORT int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return static_cast<int>(call([&] { return do_ioctl(fd, static_cast<uint32_t>(request), argument); }));
}

EXPORT off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
    return call([&] { return do_seek(fd, offset, whence); });
}

EXPORT off_t lseek(int fd, off_t offset, int whence) noexcept {
    return static_cast<off_t>(call([&] { return do_seek(fd, offset, whence); }));
}

EXPORT void* mmap64(void* at, size_t size, int protection, int flags, int fd, off64_t offset) noexcept {
    return do_mmap(at, size, protection, flags, fd, offset);
}

EXPORT void* mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    return do_mmap(at, size, protection, flags, fd, offset);
}

// --- Paths

EXPORT FILE* fopen(const char* path, const char* mode) {
    find_real_functions();
    return do_fopen(real.fopen, path, mode);
}

EXPORT FILE* fopen64(const char* path, const char* mode) {
    find_real_functions();
    return do_fopen(real.fopen64, path, mode);
}

#define STAT_LIKE(name, type)                                                                                  \
    EXPORT int name(const char* path, type* out) noexcept {                                                    \
        return by_path("stat", path, [&](const char* there) { return real.name(there, out); });                \
    }
STAT_LIKE(stat, struct stat)
STAT_LIKE(stat64, struct stat64)
STAT_LIKE(lstat, struct stat)
STAT_LIKE(lstat64, struct stat64)

#define STAT_AT_LIKE(name, type)                                                                               \
    EXPORT int name(int directory, const char* path, type* out, int flags) noexcept {                          \
        return by_path("stat", path, [&](const char* there) { return real.name(directory, there, out, flags); }); \
    }
STAT_AT_LIKE(fstatat, struct stat)
STAT_AT_LIKE(fstatat64, struct stat64)

EXPORT int access(const char* path, int mode) noexcept {
    return by_path("access", path, [&](const char* there) { return real.access(there, mode); });
}

EXPORT int unlink(const char* path) noexcept {
    return by_path("unlink", path, [](const char* there) { return real.unlink(there); });
}

EXPORT int mkdir(const char* path, mode_t mode) noexcept {
    return by_path("mkdir", path, [&](const char* there) { return real.mkdir(there, mode); });
}

EXPORT int rmdir(const char* path) noexcept {
    return by_path("rmdir", path, [](const char* there) { return real.rmdir(there); });
}

EXPORT int rename(const char* from, const char* to) noexcept {
    return by_path("rename", from, [&](const char* there) {
        char target[board::kPathSize];
        return real.rename(there, board::place(to, target) != nullptr ? target : to);
    });
}

EXPORT DIR* opendir(const char* path) {
    DIR* directory = nullptr;
    by_path("opendir", path, [&](const char* there) {
        directory = real.opendir(there);
        return directory != nullptr ? 0 : -1;
    });
    return directory;
}

// --- Time

EXPORT int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout) {
    if (timeout == nullptr || in != nullptr || out != nullptr || except != nullptr) {
        find_real_functions();
        return real.select(count, in, out, except, timeout);
    }
    const int result = do_sleep(timeout->tv_sec * clock::kSecond + timeout->tv_usec * 1000LL);
    if (result == 0) *timeout = {};
    return result;
}

EXPORT int nanosleep(const timespec* duration, timespec*) { return do_sleep(nanos(*duration)); }
EXPORT int usleep(useconds_t micros) { return do_sleep(int64_t{micros} * 1000); }
EXPORT unsigned sleep(unsigned seconds) { return do_sleep(seconds * clock::kSecond) == 0 ? 0 : seconds; }

EXPORT int clock_nanosleep(clockid_t id, int flags, const timespec* time, timespec*) {
    timespec present{};
    if ((flags & TIMER_ABSTIME) != 0) clock_gettime(id, &present);
    return do_sleep(nanos(*time) - nanos(present)) == 0 ? 0 : errno;
}

// --- Threads and tasks

EXPORT int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                          void* argument) noexcept {
    int error = 0;
    call([&]() -> int64_t {
        const bool silent = clone_task::making_thread() || clock::is_foreign(attributes);
        if (silent) {
            error = real.pthread_create(thread, attributes, start, argument);
            return 0;
        }
        const int64_t fault = script::fault_of("thread", "pthread_create");
        error = fault < 0 ? static_cast<int>(-fault) : clock::create(thread, attributes, start, argument);
        Line("thread").add(" start").failure(-error);
        return 0;
    });
    return error;
}

EXPORT int pthread_join(pthread_t thread, void** result) {
    int error = 0;
    call([&]() -> int64_t {
        error = clock::join(thread, result);
        return 0;
    });
    return error;
}

EXPORT int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    find_real_functions();
    if (!clock::shared()) return real.pthread_mutex_lock(mutex);
    int error = 0;
    call([&]() -> int64_t {
        error = clock::lock_mutex(mutex);
        return 0;
    });
    return error;
}

EXPORT int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    find_real_functions();
    return clock::unlock_mutex(mutex);
}

struct Wrapped {
    int (*function)(void*);
    void* argument;
};

EXPORT int clone(int (*function)(void*), void* stack, int flags, void* argument, ...) noexcept {
    return static_cast<int>(call([&]() -> int64_t {
        if ((flags & CLONE_VM) == 0) return or_errno(real.clone(function, stack, flags, argument));
        const int64_t fault = script::fault_of("clone", "clone");
        // The thread sanitizer's clone() makes its child as fork() does, which is wrong for a thread: past its wrapper.
        Dl_info outermost{}, own{};
        dladdr(dlsym(RTLD_DEFAULT, "clone"), &outermost);
        dladdr(reinterpret_cast<void*>(&clone_task::create), &own);
        auto* wrapped = static_cast<Wrapped*>(argument);
        const bool wrapper = clock::under_thread_sanitizer() && outermost.dli_fbase != own.dli_fbase;
        const int64_t result = fault < 0 ? fault
                               : wrapper ? clone_task::create(wrapped->function, stack, flags, wrapped->argument)
                                         : clone_task::create(function, stack, flags, argument);
        Line("clone").add(" task").failure(result);
        return result;
    }));
}

// --- The machine itself

EXPORT int system(const char* command) {
    if (command == nullptr) return 1;
    int status = 0;
    call([&]() -> int64_t {
        status = script::run_command(command);
        return status < 0 ? -errno : 0;
    });
    return status;
}

// A process that ends this way leaves no board behind either. (A vforked child only looks like one.)
EXPORT void _exit(int code) {
    board::clean_up();
    for (;;) real.syscall(SYS_exit_group, code);
}
EXPORT void _Exit(int code) noexcept { _exit(code); }

EXPORT void sync() noexcept { recorded("sync"); }
EXPORT int umount(const char*) noexcept { return recorded("umount"); }
EXPORT int umount2(const char*, int) noexcept { return recorded("umount"); }
EXPORT int mount(const char*, const char*, const char*, unsigned long, const void*) noexcept {
    return recorded("mount");
}

EXPORT int reboot(int command) noexcept {
    return static_cast<int>(call([&] { return do_reboot(static_cast<unsigned>(command)); }));
}

EXPORT int settimeofday(const timeval*, const struct timezone*) noexcept {
    return recorded("clock settimeofday refused", -EINVAL);
}

EXPORT int clock_settime(clockid_t, const timespec*) noexcept { return recorded("clock clock_settime", -EPERM); }

EXPORT long syscall(long number, ...) noexcept {
    va_list arguments;
    va_start(arguments, number);
    long a[6];
    for (long& each : a) each = va_arg(arguments, long);
    va_end(arguments);
    find_real_functions();
    switch (number) {
        case SYS_settimeofday:
            return static_cast<long>(call([&] {
                return set_clock(reinterpret_cast<timeval*>(a[0]), reinterpret_cast<struct timezone*>(a[1]));
            }));
        case SYS_reboot: return reboot(static_cast<int>(a[2]));
        case SYS_sync: return recorded("sync");
        case SYS_mount: return recorded("mount");
        case SYS_umount2: return recorded("umount");
        case SYS_clock_settime: return recorded("clock clock_settime", -EPERM);
        default: return real.syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    }
}
