// Write a partition: what an upgrade does, sector by sector with progress.
//
//     write-partition ADDRESS IMAGE
//
// ADDRESS is where the partition begins on the raw flash: the first is at 0x2000000, and each of the following, in the
// order of /proc/mtd, where the one before it ends.

#include <fcntl.h>
#include <libmarl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace {

//! [open]
// The one flash object of the process. While it is there the upgrade flag may be up, which keeps the supervisor from
// rebooting the board in the middle; the last release takes it down. So it must be released on every way out.
struct Release {
    void operator()(RawFlash* flash) const { flash_release(flash); }
};
using Flash = std::unique_ptr<RawFlash, Release>;

Flash open_flash() {
    const int32_t mode =
        0;  // the host's own flash; 1 would be a co-processor's, on the one model that has it
    RawFlash* flash = nullptr;
    return Flash(createRawFlash(&mode, &flash) == 0 ? flash : nullptr);
}
//! [open]

//! [write]
// A sector at a time, so that there is something to tell. Sectors that are right already are left alone, so after a power
// cut the same is simply written again: it goes on where it was cut.
bool write(RawFlash* flash, uint32_t address, const std::vector<uint8_t>& image) {
    RawFlashInfo info{};
    if (flash_getinfo(flash, &info) < 0) return false;
    const auto size = static_cast<uint32_t>(image.size());
    for (uint32_t done = 0; done < size;) {
        const uint32_t piece = std::min(info.sector_size, size - done);
        if (flash_write(flash, image.data() + done, address + done, piece) < 0) return false;
        done += piece;
        printf("%u %%\n", static_cast<unsigned>(uint64_t{done} * 100 / size));
    }
    return true;
}
//! [write]

//! [verify]
// What the flash holds now, read back.
bool holds(RawFlash* flash, uint32_t address, const std::vector<uint8_t>& image) {
    const auto size = static_cast<uint32_t>(image.size());
    std::vector<uint8_t> stored(size);
    return flash_read(flash, stored.data(), address, size) >= 0 && stored == image;
}
//! [verify]

// The whole file; empty when it cannot be read to its end.
std::vector<uint8_t> read_file(const char* path) {
    std::vector<uint8_t> bytes;
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return bytes;
    uint8_t part[4096];
    ssize_t got = 0;
    while ((got = read(file, part, sizeof part)) > 0) bytes.insert(bytes.end(), part, part + got);
    close(file);
    if (got < 0) bytes.clear();
    return bytes;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: write-partition ADDRESS IMAGE\n");
        return 2;
    }
    const auto address = static_cast<uint32_t>(strtoul(argv[1], nullptr, 0));
    const auto image = read_file(argv[2]);
    if (image.empty()) {
        fprintf(stderr, "%s: nothing to write\n", argv[2]);
        return 1;
    }
    const Flash flash = open_flash();
    if (!flash || !write(flash.get(), address, image)) {
        fprintf(stderr, "the image is not written; write it again\n");
        return 1;
    }
    const bool is_whole = holds(flash.get(), address, image);
    puts(is_whole ? "the image is whole" : "the flash does not keep what is written");
    return is_whole ? 0 : 1;
}
