#include "base/shared_word.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "base/fd.h"

namespace marl {

int SharedWord::open(const char* path, bool create) {
    fd_ = open_file(path, O_RDWR | (create ? O_CREAT : 0), 0777);
    return fd_ < 0 ? errno : 0;
}

void SharedWord::close() {
    if (address_ != nullptr) munmap(address_, sizeof(uint32_t));
    if (fd_ >= 0) ::close(fd_);
    address_ = nullptr;
    fd_ = -1;
}

bool SharedWord::map(bool writable) {
    const int access = PROT_READ | (writable ? PROT_WRITE : 0);
    void* address = mmap(nullptr, sizeof(uint32_t), access, MAP_SHARED, fd_, 0);
    if (address == MAP_FAILED) return false;
    address_ = address;
    return true;
}

ssize_t SharedWord::read(uint32_t& value) const {
    uint32_t fetched = 0;
    const ssize_t n = repeat_interrupted([&] { return pread(fd_, &fetched, sizeof fetched, 0); });
    if (n == ssize_t{sizeof fetched}) value = fetched;
    return n;
}

bool SharedWord::is_replaced(const char* path) const {
    struct stat opened {};
    struct stat named {};
    if (fstat(fd_, &opened) < 0 || stat(path, &named) < 0) return false;
    return opened.st_ino != named.st_ino || opened.st_dev != named.st_dev;
}

bool SharedWord::write(uint32_t value) const {
    const ssize_t n = repeat_interrupted([&] { return pwrite(fd_, &value, sizeof value, 0); });
    return n == ssize_t{sizeof value};
}

}  // namespace marl
