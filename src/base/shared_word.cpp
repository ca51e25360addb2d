#include "base/shared_word.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/fd.h"

namespace marl {

int SharedWord::open(const char* path, bool create) {
    constexpr int kAsItIs = O_RDWR | O_NOFOLLOW | O_NONBLOCK;
    int fd = open_file(path, kAsItIs);
    // O_CREAT only for a missing file: in /tmp the kernel may refuse it for one that is there
    // and somebody else's.
    if (fd < 0 && errno == ENOENT && create) fd = open_file(path, kAsItIs | O_CREAT, 0777);
    if (fd < 0) return errno;
    // The 64-bit form, because an inode number too large for the other one is no reason to refuse a file.
    struct stat64 file {};
    if (fstat64(fd, &file) < 0 || !S_ISREG(file.st_mode)) {
        ::close(fd);
        return EINVAL;
    }
    fd_ = fd;
    device_ = file.st_dev;
    inode_ = file.st_ino;
    return 0;
}

int SharedWord::follow(const char* path, bool create) {
    if (is_open()) {
        const Bearer bearer = bearer_of(path);
        if (bearer == Bearer::ThisFile || (bearer == Bearer::None && !create)) return 0;
    }
    SharedWord next;
    if (const int error = next.open(path, create); error != 0) return error;
    close();
    *this = next;
    return 0;
}

SharedWord::Bearer SharedWord::bearer_of(const char* path) const {
    struct stat named {};
    if (lstat(path, &named) < 0) return Bearer::None;
    return named.st_ino == inode_ && named.st_dev == device_ ? Bearer::ThisFile : Bearer::Another;
}

void SharedWord::close() {
    if (address_ != nullptr) munmap(address_, sizeof(uint32_t));
    if (fd_ >= 0) ::close(fd_);
    *this = SharedWord{};
}

bool SharedWord::map(bool writable) {
    const int access = PROT_READ | (writable ? PROT_WRITE : 0);
    void* address = mmap(nullptr, sizeof(uint32_t), access, MAP_SHARED, fd_, 0);
    if (address == MAP_FAILED) return false;
    address_ = address;
    return true;
}

bool SharedWord::read(uint32_t& value) const {
    uint32_t fetched = 0;
    if (repeat_interrupted([&] { return pread(fd_, &fetched, sizeof fetched, 0); }) < 0) return false;
    value = fetched;
    return true;
}

bool SharedWord::write(uint32_t value) const {
    const ssize_t n = repeat_interrupted([&] { return pwrite(fd_, &value, sizeof value, 0); });
    return n == ssize_t{sizeof value};
}

}  // namespace marl
