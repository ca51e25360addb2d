// Descriptors: opening, whole transfers, ownership. Every descriptor is close-on-exec, so no shell command
// that the daemon starts holds a device; a call that a signal interrupts is repeated.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>

namespace marl {

// How often a call is repeated. Signals are rare on the device: what is interrupted more often than this has
// a driver that will never answer anything else, and nobody may wait for that.
inline constexpr int kMostRepeats = 100;

// Makes a system call again when a signal interrupts it; one that stays interrupted has failed, with EINTR.
template <typename Call>
auto repeat_interrupted(Call call) {
    auto result = call();
    for (int repeats = 0; repeats < kMostRepeats && result < 0 && errno == EINTR; ++repeats) result = call();
    return result;
}

// Moves a descriptor above those of the standard streams when it is one of theirs: where one of them was
// closed, what is opened next takes its number, and messages would be written into a device. Returns the
// descriptor, or -1 with errno set, with nothing left open.
int above_standard(int fd);

// open(2) and socket(2), close-on-exec; a descriptor above those of the standard streams, or -1
// with errno set.
int open_file(const char* path, int flags, mode_t mode = 0);
int open_socket(int domain, int type, int protocol);

// Opens into `fd` when it is negative, for the process-wide descriptors that are opened on first use and
// kept: a failed open leaves it negative and the next call tries again. Returns `fd`.
int open_once(int& fd, const char* path, int flags, mode_t mode = 0);

// One read(2) or write(2): the count, or -1 with errno set.
ssize_t read_some(int fd, void* buffer, size_t size);
ssize_t write_some(int fd, const void* data, size_t size);

// As many transfers as it takes: true when all `size` bytes went. Otherwise false with errno set; a transfer
// that merely stops short (end of file, a device that takes no more) sets it to EIO.
bool read_whole(int fd, void* buffer, size_t size);
bool write_whole(int fd, const void* data, size_t size);

// ioctl(2) with a pointer or with a plain value.
int control(int fd, unsigned long request, void* argument);
int control(int fd, unsigned long request, unsigned long value);

// Owns a descriptor for the length of a scope.
class Fd {
  public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd();
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;

    int get() const { return fd_; }
    bool is_open() const { return fd_ >= 0; }

  private:
    int fd_;
};

}  // namespace marl
