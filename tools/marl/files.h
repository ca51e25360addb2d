// Files, by plain system calls.
#pragma once

#include <unistd.h>

#include <cstddef>

namespace tool {

// An owned descriptor.
class File {
  public:
    // Opens with O_CLOEXEC; errno says why where is_open() is false.
    File(const char* path, int flags);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool is_open() const { return fd_ >= 0; }
    int descriptor() const { return fd_; }

    // All of `size` bytes, from and to `offset` on. A file that ends before is an error (EIO).
    bool read_at(void* data, size_t size, off_t offset) const;
    bool write_at(const void* data, size_t size, off_t offset) const;

  private:
    int fd_;
};

// The beginning of a text file, terminated. False with errno set when it cannot be read.
bool read_text(const char* path, char* text, size_t size);

}  // namespace tool
