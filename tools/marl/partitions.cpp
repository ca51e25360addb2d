#include "partitions.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "files.h"

namespace tool {
namespace {

constexpr const char* kTable = "/proc/mtd";
constexpr uint32_t kFirstAddress = 0x2000000;

// Its image is always as large.
constexpr Target kFpga{"fpga", -1, 0x4000000, 0x80000, 4096};

}  // namespace

bool Partitions::read() {
    char text[4096] = "\n";
    if (!read_text(kTable, text + 1, sizeof text - 1)) return false;
    bool goes_on = true;
    while (goes_on && count_ < kMost) {
        char start[20];
        snprintf(start, sizeof start, "\nmtd%d:", count_);
        const char* row = strstr(text, start);
        goes_on = row != nullptr && add(row + strlen(start));
    }
    return true;
}

// What follows the number of a row: 00400000 00010000 "system"
bool Partitions::add(const char* row) {
    Target& target = targets_[count_];
    if (sscanf(row, "%x %x \"%63[^\"\n]", &target.size, &target.sector, target.name) < 2) return false;
    const Target& before = targets_[std::max(count_ - 1, 0)];
    target.address = count_ == 0 ? kFirstAddress : before.address + before.size;
    target.sector = targets_[0].sector;  // the library's for all
    target.number = count_++;
    return true;
}

const Target* Partitions::find(const char* name) const {
    for (int i = 0; i < count_; ++i) {
        if (strcmp(targets_[i].name, name) == 0) return &targets_[i];
    }
    unsigned number = 0;
    char rest = 0;
    if (sscanf(name, "mtd%u%c", &number, &rest) == 1 && number < static_cast<unsigned>(count_))
        return &targets_[number];
    return strcmp(name, kFpga.name) == 0 ? &kFpga : nullptr;
}

}  // namespace tool
