// A 32-bit word at the start of a small file that another process changes at any time.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace marl {

// The file is mapped, because a file that cannot be mapped is an answer of its own; the word is fetched with
// pread from the same page, because a load through the mapping dies of SIGBUS when the other process
// truncates the file at that moment, and the supervisor has to outlive that.
class SharedWord {
  public:
    constexpr SharedWord() = default;

    bool is_open() const { return fd_ >= 0; }
    bool is_mapped() const { return address_ != nullptr; }

    // Opens read-write; 0, or the errno of the failure. With `create` the file is made with mode 0777.
    int open(const char* path, bool create);

    // Forgets the file: unmaps and closes what there is.
    void close();

    // Maps the first 4 bytes, shared. False when that fails; the next call tries again.
    bool map(bool writable);

    // Fetches the word. Returns the bytes the file had for it, 4 when it is whole, or -1; `value` is only set
    // by a whole word.
    ssize_t read(uint32_t& value) const;

    // Whether `path` names another file by now: the one that is open was deleted and made anew.
    bool is_replaced(const char* path) const;

    // Stores the word at the start of the file, which makes it at least 4 bytes long. False when that fails.
    bool write(uint32_t value) const;

  private:
    int fd_ = -1;
    void* address_ = nullptr;
};

}  // namespace marl
