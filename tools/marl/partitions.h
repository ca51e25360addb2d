// Where the flash is divided, which the library knows by address alone.
#pragma once

#include <cstdint>

namespace tool {

// A part of the raw flash that a command is for.
struct Target {
    char name[64];
    int number;  // of the partition; -1 for the FPGA's flash
    uint32_t address;
    uint32_t size;
    uint32_t sector;

    bool is_fpga() const { return number < 0; }
};

class Partitions {
  public:
    static constexpr int kMost = 15;  // that the library knows

    // Reads /proc/mtd. False with errno set when it cannot be read.
    bool read();

    int count() const { return count_; }
    const Target& operator[](int index) const { return targets_[index]; }

    // By the name of a partition, "mtdN", or "fpga". Null when there is no such.
    const Target* find(const char* name) const;

  private:
    bool add(const char* row);

    Target targets_[kMost] = {};
    int count_ = 0;
};

}  // namespace tool
