// The library's flash on the kernel's own drivers.
//
//   flash_check cases             what a write does to a sector, its neighbours and the next partition
//   flash_check update SEED       writes the image of that seed over the last partition
//   flash_check holds SEED        whether the last partition holds it, by the driver's word alone
//
// The bytes of an image depend on its seed in every sector.
#include <fcntl.h>
#include <libmarl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kFlashBase = 0x2000000;

int failures = 0;

void check(const char* what, bool right) {
    printf("\n@@ flash %s: %s\n", what, right ? "passed" : "failed");
    failures += right ? 0 : 1;
}

struct Partition {
    int number;
    uint32_t start;  // as the library counts
    uint32_t size;
};

// What the kernel says there is, and the sector.
struct Board {
    std::vector<Partition> partitions;
    uint32_t sector = 0;
};

Board read_board() {
    Board board;
    FILE* table = fopen("/proc/mtd", "r");
    char line[128];
    uint32_t start = kFlashBase;
    while (table != nullptr && fgets(line, sizeof line, table) != nullptr) {
        int number = 0;
        unsigned size = 0, sector = 0;
        if (sscanf(line, "mtd%d: %x %x", &number, &size, &sector) != 3) continue;
        if (board.partitions.empty()) board.sector = sector;
        board.partitions.push_back({number, start, size});
        start += size;
    }
    if (board.partitions.size() < 3) exit(2);
    return board;
}

// A partition as the driver has it, without the library.
Bytes stored(const Partition& partition) {
    const int fd = open(("/dev/mtd/" + std::to_string(partition.number)).c_str(), O_RDONLY);
    Bytes bytes(partition.size);
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = pread(fd, &bytes[done], bytes.size() - done, static_cast<off_t>(done));
        if (n <= 0) exit(3);
        done += static_cast<size_t>(n);
    }
    close(fd);
    return bytes;
}

Bytes image(uint32_t size, uint32_t seed) {
    Bytes bytes(size);
    for (uint32_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>((i + 1) * 2654435761U >> 24 ^ seed * 97);
    }
    return bytes;
}

RawFlash* make_flash() {
    const int32_t mode = 0;
    RawFlash* flash = nullptr;
    if (createRawFlash(&mode, &flash) < 0) exit(4);
    return flash;
}

// --- Cases

// One operation, and what it must leave in two neighbouring partitions.
class Case {
  public:
    Case(RawFlash* flash, const Board& board, size_t first)
        : flash_(flash), first_(board.partitions[first]), second_(board.partitions[first + 1]) {
        expected_ = both();
    }
    void writes(const char* what, uint32_t offset, const Bytes& data, bool accepted) {
        const int result =
            flash_->write(flash_, data.data(), first_.start + offset, static_cast<uint32_t>(data.size()));
        if (accepted) std::copy(data.begin(), data.end(), expected_.begin() + offset);
        check(what, (result == static_cast<int>(data.size())) == accepted && both() == expected_);
    }
    void erases(const char* what, uint32_t offset, uint32_t size, uint32_t erased, bool accepted) {
        const int result = flash_->erase(flash_, first_.start + offset, size);
        if (accepted) std::fill_n(expected_.begin() + offset, erased, uint8_t{0xFF});
        check(what, (result == 0) == accepted && both() == expected_);
    }

  private:
    Bytes both() const {
        Bytes bytes = stored(first_);
        const Bytes more = stored(second_);
        bytes.insert(bytes.end(), more.begin(), more.end());
        return bytes;
    }
    RawFlash* flash_;
    Partition first_, second_;
    Bytes expected_;
};

int run_cases(const Board& board) {
    RawFlash* flash = make_flash();
    const uint32_t sector = board.sector;
    for (size_t first : {size_t{0}, size_t{1}}) {
        printf("\n@@ flash partition %zu, sectors of %u bytes\n", first, sector);
        const uint32_t size = board.partitions[first].size;
        Case row(flash, board, first);
        row.writes("whole sectors", 0, image(2 * sector, 3), true);
        row.writes("the same again", 0, image(2 * sector, 3), true);
        row.writes("a partial sector keeps its rest", sector, image(sector / 2 + 3, 4), true);
        row.writes("a partial sector behind whole ones", 0, image(2 * sector + 5, 5), true);
        row.writes("not from the middle of a sector", sector / 2, image(sector, 6), false);
        row.erases("not from one byte into a sector", 1, sector, 0, false);
        row.erases("one sector", sector, sector, sector, true);
        row.erases("every sector that is touched", sector, sector + 1, 2 * sector, true);
        row.writes(first == 0 ? "not beyond the first partition" : "on into the next partition",
                   size - sector, image(2 * sector, 7), first != 0);
    }
    flash->release(flash);
    return failures == 0 ? 0 : 1;
}

// --- An upgrade

int update(const Board& board, uint32_t seed) {
    const Partition& last = board.partitions.back();
    const Bytes bytes = image(last.size, seed);
    RawFlash* flash = make_flash();
    printf("\n@@ updating %u\n", seed);
    fflush(stdout);
    const int result = flash->write(flash, bytes.data(), last.start, last.size);
    flash->release(flash);
    return result == static_cast<int>(last.size) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    const auto seed = static_cast<uint32_t>(argc > 2 ? strtoul(argv[2], nullptr, 10) : 0);
    const Board board = read_board();
    if (what == "cases") return run_cases(board);
    if (what == "update") return update(board, seed);
    if (what == "holds")
        return stored(board.partitions.back()) == image(board.partitions.back().size, seed) ? 0 : 1;
    return 2;
}
