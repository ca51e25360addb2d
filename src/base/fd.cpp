#include "base/fd.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace marl {
namespace {

// `transfer` moves up to n bytes at an offset and returns the count.
template <typename Transfer>
bool transfer_whole(size_t size, Transfer transfer) {
    size_t done = 0;
    while (done < size) {
        const ssize_t n = transfer(done, size - done);
        if (n < 0) return false;
        if (n == 0) {
            errno = EIO;
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

int above_standard(int fd) {
    if (fd < 0 || fd > STDERR_FILENO) return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(fd);
    errno = error;
    return moved;
}

int open_file(const char* path, int flags, mode_t mode) {
    return above_standard(repeat_interrupted([&] { return open(path, flags | O_CLOEXEC, mode); }));
}

int open_socket(int domain, int type, int protocol) {
    return above_standard(socket(domain, type | SOCK_CLOEXEC, protocol));
}

int open_once(int& fd, const char* path, int flags, mode_t mode) {
    if (fd < 0) fd = open_file(path, flags, mode);
    return fd;
}

ssize_t read_some(int fd, void* buffer, size_t size) {
    return repeat_interrupted([&] { return read(fd, buffer, size); });
}

ssize_t write_some(int fd, const void* data, size_t size) {
    return repeat_interrupted([&] { return write(fd, data, size); });
}

bool read_whole(int fd, void* buffer, size_t size) {
    return transfer_whole(size, [&](size_t done, size_t rest) {
        return read_some(fd, static_cast<char*>(buffer) + done, rest);
    });
}

bool write_whole(int fd, const void* data, size_t size) {
    return transfer_whole(size, [&](size_t done, size_t rest) {
        return write_some(fd, static_cast<const char*>(data) + done, rest);
    });
}

int control(int fd, unsigned long request, void* argument) {
    return repeat_interrupted([&] { return ioctl(fd, request, argument); });
}

int control(int fd, unsigned long request, unsigned long value) {
    return repeat_interrupted([&] { return ioctl(fd, request, value); });
}

Fd::~Fd() {
    if (fd_ >= 0) close(fd_);
}

}  // namespace marl
