// Files and devices: descriptors and paths.
#include <algorithm>

#include "devices.h"
#include "interpose.h"

namespace sim {
namespace {

unsigned opens = 0;

// The standard streams: their own descriptors, and those that the program opened for them anew.
constexpr int kStreamDescriptors = 1024;
constinit uint8_t streams[kStreamDescriptors] = {0, 1, 2};

int stream_of(int fd) { return fd >= 0 && fd < kStreamDescriptors ? streams[fd] : 0; }

void note_stream(int fd, int stream) {
    if (fd > 0 && fd < kStreamDescriptors) streams[fd] = static_cast<uint8_t>(stream);
}

int stream_behind(const char* path) {
    constexpr std::string_view kOwn = "/proc/self/fd/";
    return std::string_view(path).starts_with(kOwn) ? stream_of(atoi(path + kOwn.size())) : 0;
}

// A standard stream that is moved stays what it is. Programs move them before anything else is there, so this
// does without the board.
int moved(int from, int to, int result) {
    if (result >= 0) note_stream(to, stream_of(from));
    return result;
}

// How much of size passes: a fault that is no error number is a number of bytes.
size_t bounded(size_t size, int64_t fault) {
    return fault >= 0 && static_cast<uint64_t>(fault) < size ? static_cast<size_t>(fault) : size;
}

int64_t console(const char* who, const void* data, size_t size, int fd) {
    const int64_t fault = script::fault_of(who, "write");
    size = bounded(size, fault);
    const int64_t result = fault < 0 ? fault : or_errno(real.write(fd, data, size));
    const size_t taken = result > 0 ? static_cast<size_t>(result) : size;
    Line(who).quoted(static_cast<const char*>(data), taken).failure(result);
    return result;
}

// A read or write of a descriptor of the board: faults, then the model or the real file.
int64_t pass_file(const OpenFile& file, const char* op, void* data, size_t size, const Kernel& kernel) {
    const bool reading = op[0] == 'r';
    const devices::Transfer model = reading ? file.model->read : file.model->write;
    const unsigned address = size > 0 ? *static_cast<uint8_t*>(data) : 0;
    const int64_t fault = script::fault_of(file.name, op);
    if (fault >= 0 && !reading && file.model->lasting) script::count_change();
    size = bounded(size, fault);
    const int64_t result = fault <= 0         ? fault  // an error, or nothing at all
                           : model != nullptr ? model(static_cast<uint8_t*>(data), size)
                                              : or_errno(kernel(size));
    Line line(file.name);
    line.add(" %s %lld", op, result < 0 ? static_cast<long long>(size) : static_cast<long long>(result));
    // A frame is shown whole, sent or not.
    const bool is_frame = strcmp(op, "sendto") == 0;
    const bool is_ordinary = file.model->path[0] == '\0';
    const size_t shown = is_frame      ? record::kFrameShown
                         : is_ordinary ? record::kTextShown
                                       : record::kBytesShown;
    if (result > 0 || is_frame) line.bytes(data, result > 0 ? static_cast<size_t>(result) : size, shown);
    if (reading && file.model->address != nullptr) line.add(" (%s %u)", file.model->address, address);
    line.failure(result);
    return result;
}

// What a launched program must leave alone.
int64_t refuse(const char* path, const char* op) {
    Line(path).add(" %s", op).failure(-EPERM);
    return -EPERM;
}

template <class Kernel>
int by_path(const char* op, bool changes, const char* path, Kernel kernel) {
    return call([&]() -> int64_t {
        char there[board::kPathSize];
        if (board::place(path, there) == nullptr) {
            return changes && !board::may_write(path) ? refuse(path, op) : or_errno(kernel(path));
        }
        return told(path, op, op, [&] { return kernel(there); });
    });
}

}  // namespace

int64_t pass_data(const char* op, int fd, void* data, size_t size, const Kernel& kernel) {
    const OpenFile* file = board::tracked(fd);
    const int stream = op[0] == 'w' ? stream_of(fd) : 0;
    if (file == nullptr && stream != 0) return console(stream == 1 ? "out" : "err", data, size, fd);
    if (file == nullptr) return or_errno(kernel(size));
    const int64_t result = pass_file(*file, op, data, size, kernel);
    script::run_due();  // it may have reset the board
    return result;
}

bool in_place() {
    const unsigned before = opens;
    const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (fd >= 0) ::close(fd);
    return opens != before;
}

}  // namespace sim

using namespace sim;

// --- Descriptors

// What may have a last parameter has it always, as it lies in its register.
EXPORT int sim_open(const char* path, int flags, mode_t mode) __asm__("open");
EXPORT int sim_fcntl(int fd, int command, long argument) __asm__("fcntl");
EXPORT int sim_ioctl(int fd, unsigned long number, void* argument) __asm__("ioctl");

int sim_open(const char* path, int flags, mode_t mode) {
    return call([&]() -> int64_t {
        ++opens;
        char there[board::kPathSize];
        if (board::place(path, there) == nullptr) {
            const int stream = stream_behind(path);
            const bool changes = (flags & (O_ACCMODE | O_CREAT | O_TRUNC)) != 0;
            if (changes && stream == 0 && !board::may_write(path)) return refuse(path, "open w");
            const int64_t passed = or_errno(real.open(path, flags, mode));
            note_stream(static_cast<int>(passed), stream);
            return passed;
        }
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
    return call([&]() -> int64_t {
        int64_t fault = script::kNoFault;
        if (const OpenFile* file = board::tracked(fd)) {
            fault = script::fault_of(file->name, "close");
            Line(file->name).add(" close").failure(fault);
        }
        board::forget(fd);
        if (fd > 2) note_stream(fd, 0);
        const int64_t result = or_errno(real.close(fd));
        return fault < 0 ? fault : result;
    });
}

// A descriptor that is moved stays what it is.
int sim_fcntl(int fd, int command, long argument) {
    return call([&]() -> int64_t {
        const int64_t result = or_errno(real.fcntl(fd, command, argument));
        const OpenFile* file = board::tracked(fd);
        const bool copies = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
        if (copies && result >= 0 && file != nullptr) board::track(static_cast<int>(result), file->name);
        return result;
    });
}

EXPORT int dup2(int from, int to) noexcept {
    find_real_functions();
    return moved(from, to, real.dup2(from, to));
}

EXPORT int dup3(int from, int to, int flags) noexcept {
    find_real_functions();
    return moved(from, to, real.dup3(from, to, flags));
}

TRANSFER(read, "read", (int fd, void* data, size_t size), (fd, data, most))
TRANSFER(pread, "read", (int fd, void* data, size_t size, off_t offset), (fd, data, most, offset))
TRANSFER(write, "write", (int fd, const void* data, size_t size), (fd, data, most))
TRANSFER(pwrite, "write", (int fd, const void* data, size_t size, off_t offset), (fd, data, most, offset))

// What the C library's checking headers may make of open().
EXPORT int __open_2(const char* path, int flags) { return sim_open(path, flags, 0); }

int sim_ioctl(int fd, unsigned long number, void* argument) {
    const auto request = static_cast<uint32_t>(number);
    return call([&]() -> int64_t {
        const OpenFile* file = board::tracked(fd);
        // A local socket would do to reach the machine's network, the board's own among them.
        const bool is_network = request >> 8 == 0x89;
        if (is_network && !devices::state.network) return -EAFNOSUPPORT;
        if (file == nullptr) return or_errno(real.ioctl(fd, request, argument));
        Line line(file->name);
        line.add(" ioctl 0x%x", request);
        const int64_t fault = script::fault_of(file->name, "ioctl", request);
        const int64_t result = fault < 0 ? fault : devices::control(file->name, fd, request, argument, line);
        line.failure(result);
        return result;
    });
}

DESCRIPTOR_CALL(off_t, lseek, offset, (int fd, off_t offset, int whence), (fd, offset, whence))
DESCRIPTOR_CALL(int, ftruncate, size, (int fd, off_t size), (fd, size))
EXPORT int fsync(int fd) {
    return on_file("fsync", fd, 0, [&] { return real.fsync(fd); });
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

// --- Paths

#define PATH_CALL(name, changes, parameters, arguments)                                               \
    EXPORT int name parameters noexcept {                                                             \
        return by_path(#name, changes, path, [&](const char* there) { return real.name arguments; }); \
    }
PATH_CALL(stat, false, (const char* path, struct stat* out), (there, out))
PATH_CALL(lstat, false, (const char* path, struct stat* out), (there, out))
PATH_CALL(access, false, (const char* path, int mode), (there, mode))
PATH_CALL(mkdir, true, (const char* path, mode_t mode), (there, mode))
PATH_CALL(unlink, true, (const char* path), (there))

EXPORT DIR* opendir(const char* path) {
    DIR* directory = nullptr;
    by_path("opendir", false, path, [&](const char* there) {
        directory = real.opendir(there);
        return directory != nullptr ? 0 : -1;
    });
    return directory;
}

EXPORT int rename(const char* path, const char* to) noexcept {
    char target[board::kPathSize];
    const bool is_inside = board::place(to, target) != nullptr;
    return by_path("rename", true, path, [&](const char* there) -> int64_t {
        if (is_inside || !board::is_launched()) return real.rename(there, is_inside ? target : to);
        return errno = EXDEV, -1;
    });
}
