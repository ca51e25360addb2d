// A 32-bit word at the start of a small file that other processes change, truncate, delete and make anew
// at any time.
#pragma once

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

    // Sees to it that the file that bears the name is the one that is open (read-write): opens it, or moves
    // to it when the one that is open has lost its name to it. A file that is missing is made with `create`
    // (mode 0777); without, one that is open and has only been deleted stays open. 0, or the errno of the
    // failure, after which all is as it was.
    //
    // Only a regular file will do. A link is not followed, and neither a FIFO nor a lease makes the caller
    // wait.
    int follow(const char* path, bool create);

    // Whether the file that is open still bears the name.
    bool is_named(const char* path) const { return bearer_of(path) == Bearer::ThisFile; }

    // Forgets the file: unmaps and closes what there is.
    void close();

    // Maps the first 4 bytes, shared. False when that fails; the next call tries again.
    bool map(bool writable);

    // Fetches the word; bytes that the file lacks are 0, as they are in the mapping. False, and nothing
    // fetched, when the file cannot be read.
    bool read(uint32_t& value) const;

    // Stores the word at the start of the file, which makes it at least 4 bytes long. False when that fails.
    bool write(uint32_t value) const;

  private:
    enum class Bearer { None, ThisFile, Another };

    Bearer bearer_of(const char* path) const;
    int open(const char* path, bool create);

    int fd_ = -1;
    uint64_t device_ = 0;
    uint64_t inode_ = 0;
    void* address_ = nullptr;
};

}  // namespace marl
