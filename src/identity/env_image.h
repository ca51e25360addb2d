// The memory of the boot environment's image. Every program of the device carries the image, and little of it
// is in use: what lies behind the list of variables is zeros, or erased flash. Pages of that are given back to
// the kernel, so that a program pays for the variables alone.
#pragma once

#include <cstddef>
#include <cstdint>

namespace marl {

class EnvImage {
  public:
    static constexpr size_t kSize = 0x20000;

    // All zeros; false, with errno set, when there is no memory for it.
    bool allocate();
    void release();

    uint8_t* bytes() const { return bytes_; }

    // Gives back what holds nothing of the pages behind the first `used` bytes. Until they are fetched back,
    // nobody may ask for what lies there.
    void give_back_behind(size_t used);
    void fetch_back();

  private:
    uint8_t* bytes_ = nullptr;
    uint32_t erased_ = 0;  // pages that were given back and hold 0xFF everywhere, a bit each
};

}  // namespace marl
