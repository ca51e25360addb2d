#include "files.h"

#include <fcntl.h>

#include <cerrno>

namespace tool {
namespace {

// Moves all of the bytes, a piece at a time, whatever interrupts it.
template <class Step>
bool transfer(size_t size, Step step) {
    for (size_t done = 0; done < size;) {
        const ssize_t n = step(done);
        if (n > 0) done += static_cast<size_t>(n);
        if (n == 0) errno = EIO;
        if (n == 0 || (n < 0 && errno != EINTR)) return false;
    }
    return true;
}

}  // namespace

File::File(const char* path, int flags) : fd_(open(path, flags | O_CLOEXEC, 0644)) {}

File::~File() {
    if (is_open()) close(fd_);
}

bool File::read_at(void* data, size_t size, off_t offset) const {
    return transfer(size, [&](size_t done) {
        return pread(fd_, static_cast<char*>(data) + done, size - done, offset + static_cast<off_t>(done));
    });
}

bool File::write_at(const void* data, size_t size, off_t offset) const {
    return transfer(size, [&](size_t done) {
        return pwrite(fd_, static_cast<const char*>(data) + done, size - done,
                      offset + static_cast<off_t>(done));
    });
}

bool read_text(const char* path, char* text, size_t size) {
    const File file(path, O_RDONLY);
    size_t used = 0;
    ssize_t n = file.is_open() ? 1 : -1;
    while (n > 0 && used < size - 1) {
        n = read(file.descriptor(), text + used, size - 1 - used);
        if (n > 0) used += static_cast<size_t>(n);
        if (n < 0 && errno == EINTR) n = 1;
    }
    text[used] = '\0';
    return n >= 0;
}

}  // namespace tool
