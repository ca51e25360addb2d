// Raw flash, FPGA flash and co-processor upgrade when something is wrong: what is refused, what is reported, and
// what is forgotten so that the next call starts from the truth.
#include <libmarl.h>
#include <sys/resource.h>

#include <cstdlib>
#include <cstring>

#include "helpers/board.h"

namespace {

using namespace board;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kSector = 0x10000;
constexpr uint32_t kFirst = 0x2000000;
constexpr uint32_t kSecond = 0x2020000;
constexpr uint32_t kThird = 0x2040000;  // goes on 2 sectors behind the base of the FPGA flash
constexpr uint32_t kFpga = 0x4000000;
constexpr uint32_t kFpgaSector = 0x1000;
constexpr uint32_t kFpgaImage = 0x80000;

const std::string kRows =
    "file /proc/mtd mtd0: 00020000 00010000 \"boot\"\n"
    "file /proc/mtd mtd1: 00020000 00010000 \"kernel\"\n";

std::string store(const std::string& path, uint32_t size) {
    return "present " + path + "\ntruncate " + path + " " + std::to_string(size) + "\n";
}

const std::string kStores = store("/dev/mtd/0", 2 * kSector) + store("/dev/mtd/1", 2 * kSector);
const std::string kFpgaBoard = store("/dev/misc/spi1", kFpgaImage);

void load_board(const std::string& script = "") {
    load(kRows + "file /proc/mtd mtd2: 01fe0000 00010000 \"rest\"\n" + kStores +
         store("/dev/mtd/2", 0x1fe0000) + kFpgaBoard + script);
}

RawFlash* create(int32_t mode = 0) {
    RawFlash* flash = nullptr;
    EXPECT_EQ(createRawFlash(&mode, &flash), 0);
    return flash;
}

int write(RawFlash* flash, uint32_t address, uint32_t size) {
    const Bytes bytes(size, 0x5A);
    return flash->write(flash, bytes.data(), address, size);
}

// What a reader of the table meets, and what is told of it on standard error; nothing of it stays.
TEST(FlashTable, IsReadAsAWholeOrNotAtAll) {
    const std::string no_row = "err \"sscanf /proc/mtd: Invalid argument\\n\"";
    const std::string no_table = "err \"open /proc/mtd failed\\n\"";
    const std::string long_name = "file /proc/mtd mtd2: 10000 10000 \"" + std::string(120, 'x') + "\"\n";
    const std::pair<std::string, std::string> cases[] = {
        {"file /proc/mtd mtd0: none\n", no_row},
        {"file /proc/mtd mtd0:\n", no_row},
        {"file /proc/mtd mtd0: 20000\n", no_row},
        {"file /proc/mtd mtd0: 20000 0\n", no_row},
        {kRows + "file /proc/mtd mtd2: none\n", no_row},
        {kRows + "file /proc/mtd mtd2: ff000000 10000\n", no_row},
        {"", no_table},
        {kRows + "fault /proc/mtd open 1 EIO\n", no_table},
        {kRows + "fault /proc/mtd read 1 EIO\n", no_table},
        {kRows + long_name + long_name + "fault /proc/mtd read 2 EIO\n", no_table},
    };
    for (const auto& [script, message] : cases) {
        load(script);
        EXPECT_EQ(flash_init(), -1) << script;
        EXPECT_TRUE(journal_follows({message})) << script;
    }
    load("file /proc/mtd mtd10: 50000 10000 \"eleventh\"\nfile /proc/mtd mtd0: 20000 10000 \"mtd1: 1\"\n" +
         long_name + "file /proc/mtd mtd1: 40000 10000 \"kernel\"\n");
    EXPECT_EQ(flash_init(), 3) << "in whatever order, by the names of the rows alone";
    EXPECT_TRUE(journal_follows({"/proc/mtd open", "out \"[libmarl] ####MTD_START[2]=0x2060000\\n\"",
                                 "out \"[libmarl] ####MTD_START[3]=0x2070000\\n\""}));
    EXPECT_EQ(count("/proc/mtd open"), 1U);
}

TEST(FlashRange, IsRefusedWhereItsStoreEnds) {
    load_board();
    RawFlash* flash = create();
    Bytes bytes(2 * kSector);
    EXPECT_EQ(Ints({write(flash, kFirst, 3 * kSector), write(flash, kFpga - kSector, kSector + 1),
                    flash->read(flash, bytes.data(), kFpga - kSector, kSector + 1),
                    write(flash, kFpga - kSector, UINT32_MAX - kFpga)}),
              Ints(4, -1));
    EXPECT_EQ(counts({"/dev/mtd/", "/dev/misc/spi1"}), Ints({3, 0})) << "opened, and no more";
    EXPECT_EQ(Ints({write(flash, kThird - kSector, 2 * kSector), write(flash, kFpga - kSector, kSector)}),
              Ints({2 * kSector, kSector}))
        << "from partition to partition, and up to the end";
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(FlashRange, EndsWithTheLastPartition) {
    load(kRows + kStores);
    RawFlash* flash = create();
    sim::clear_journal();
    EXPECT_EQ(Ints({write(flash, kThird - kSector, kSector + 1), write(flash, kThird, kSector)}),
              Ints(2, -1));
    EXPECT_EQ(count("/dev/mtd/"), 0U);
    EXPECT_TRUE(journal_follows({"out \"addr=0x2040000,MTD_START[0]=0x2000000,MTD_START[2]=0x2040000\\n\"",
                                 "out \"addr=0x2040000\\n\""}));
    EXPECT_EQ(flash->release(flash), 0);
}

// While it lives the process has no memory left, but for what was kept in reserve.
class NoMemory {
  public:
    explicit NoMemory(size_t reserve) {
        void* const volatile kept = malloc(reserve);  // volatile, or the compiler leaves it out
        getrlimit(RLIMIT_AS, &before_);
        const rlimit none{0, before_.rlim_max};
        setrlimit(RLIMIT_AS, &none);
        for (size_t size = 1U << 24; size >= 16; size -= size > 2048 ? size / 2 : 16) {
            while (void* const block = malloc(size)) {
                *static_cast<void**>(block) = blocks_;
                blocks_ = block;
            }
        }
        free(kept);
    }
    ~NoMemory() {
        setrlimit(RLIMIT_AS, &before_);
        while (void* const block = blocks_) {
            blocks_ = *static_cast<void**>(block);
            free(block);
        }
    }
    NoMemory(const NoMemory&) = delete;
    NoMemory& operator=(const NoMemory&) = delete;

  private:
    rlimit before_{};
    void* blocks_ = nullptr;
};

extern "C" __attribute__((weak)) void __sanitizer_print_stack_trace();

// Sanitizers and the emulator have memory of their own.
bool memory_is_limited() {
    if (__sanitizer_print_stack_trace != nullptr) return false;
    rlimit before{};
    getrlimit(RLIMIT_AS, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_AS, &none);
    void* const block = malloc(1U << 24);
    setrlimit(RLIMIT_AS, &before);
    free(block);
    return block == nullptr;
}

TEST(FlashMemory, IsNeededOnlyToCompareOrToFillUp) {
    if (!memory_is_limited()) GTEST_SKIP() << "here memory does not end";
    load_board();
    ASSERT_EQ(flash_init(), 3);
    const int32_t mode = 0;
    RawFlash* flash = nullptr;
    int results[3] = {};
    for (const size_t reserve : {size_t{16}, sizeof(RawFlash)}) {
        const NoMemory none(reserve);
        results[0] += createRawFlash(&mode, &flash);
    }
    EXPECT_EQ(results[0], -2);
    EXPECT_EQ(flash, nullptr);
    EXPECT_TRUE(
        journal_follows({"out \"malloc(sizeof(RawFlash))\\n\"", "out \"malloc(sizeof(priv_module))\\n\""}));
    flash = create();
    const Bytes bytes(2 * kSector, 0x5A);
    {
        const NoMemory none(16);
        results[0] = flash->write(flash, bytes.data(), kFirst, 2 * kSector);
        results[1] = flash->write(flash, bytes.data(), kFirst, kSector + 1);
        results[2] = flash->write(flash, bytes.data(), kSecond, kSector);
    }
    EXPECT_EQ(Ints(results, results + 3), Ints({2 * kSector, -1, -1}));
    EXPECT_EQ(count("out \"calloc 0x10000\\n\""), 2U);
    EXPECT_EQ(counts({"/dev/mtd/0 ioctl", "/dev/mtd/1 ioctl", "umount"}), Ints({2, 0, 0}));
    EXPECT_EQ(flash->release(flash), 0);
}

// The results of a write and of the release after it, and the flag that is left.
Ints flag_after(const std::string& faults) {
    sim::clear_journal();
    run(faults);
    RawFlash* flash = create();
    const int written = write(flash, kFirst, kSector);
    return {written, flash->release(flash), check_upgrade_map()};
}

TEST(UpgradeFlag, IsToldWhenItCannotBeSetAndTriedAgain) {
    load_board();
    constexpr int kWritten = kSector;
    const std::string report = "err \"open /tmp/upgrade_ing failed\\n\"";
    const struct {
        std::string faults;
        Ints results;
        size_t reports;
    } cases[] = {
        {"", {kWritten, 0, 0}, 0},
        {"fault /tmp/upgrade_ing write 1..2 EIO", {kWritten, 0, 0}, 2},  // write and erase go on without it
        {"fault /tmp/upgrade_ing write 3 ENOSPC", {kWritten, 0, 0}, 1},
        {"fault /tmp/upgrade_ing write 3..5 EIO", {kWritten, -1, 1}, 3},
        {"", {kWritten, 0, 0}, 0},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(flag_after(c.faults), c.results) << c.faults;
        EXPECT_EQ(count(report), c.reports) << c.faults;
    }
}

const std::string kFpgaStore = "/dev/misc/spi1";

int write_part(uint32_t from, uint32_t to) {
    return fpga_flash_write(Bytes(kFpgaImage, 0x5A).data(), to - from, from);
}

TEST(FpgaImage, RunsOnlyWhenNothingOfItIsMissing) {
    for (const std::string fault : {"read 2", "write 2", "ioctl:0xc0046508 2", "lseek 3"}) {
        SCOPED_TRACE(fault);
        load(kFpgaBoard);
        ASSERT_EQ(fpga_flash_open(), 0);
        EXPECT_EQ(write_part(0, kFpgaSector), 0) << "the first sector alone";
        run("fault /dev/misc/spi1 " + fault + " EIO");
        EXPECT_EQ(Ints({write_part(0x1000, 0x4000), write_part(0x4000, kFpgaImage)}), Ints(2, -1));
        EXPECT_TRUE(read_file(kFpgaStore).starts_with(std::string(kFpgaSector, '\xFF')));
        EXPECT_EQ(Ints({write_part(0, 0x4000), write_part(0x4000, kFpgaImage)}), Ints(2, kFpgaSector));
        EXPECT_TRUE(read_file(kFpgaStore) == std::string(kFpgaImage, 'Z')) << "from the start";
        fpga_flash_close();
    }
}

TEST(FpgaImage, GoesWithAnOpenThatFails) {
    load(kFpgaBoard);
    Ints results = {fpga_flash_open(), write_part(0, 0x4000), fpga_flash_open(), write_part(0x4000, 0x5000)};
    EXPECT_EQ(results, Ints({0, kFpgaSector, 0, kFpgaSector})) << "opened twice, the image goes on";
    sim::run("fault /dev/misc/spi1 ioctl:0xc004650c 1 EIO");
    sim::clear_journal();
    results = {fpga_flash_open(), write_part(0x5000, 0x6000), fpga_flash_open(),
               write_part(0x5000, kFpgaImage)};
    EXPECT_EQ(results, Ints({-1, -1, 0, -1}));
    EXPECT_EQ(counts({"/dev/misc/spi1 ioctl 0xc0046501", "/dev/misc/spi1 ioctl 0xc004650b"}), Ints(2, 1))
        << "in programming mode again";
    EXPECT_EQ(Ints({write_part(0, kFpgaImage)}), Ints({kFpgaSector}));
    fpga_flash_close();
}

TEST(FpgaImage, MissesAPartThatTheObjectRefuses) {
    load_board("fault /dev/misc/ataen open 1 EIO");
    RawFlash* flash = create();
    EXPECT_EQ(write(flash, kFpga, kFpgaSector), 0);
    HWINFO.store_interface = 3;  // the bus cannot be released
    EXPECT_EQ(write(flash, kFpga + kFpgaSector, kFpgaSector), -1);
    HWINFO.store_interface = 0;
    EXPECT_EQ(write(flash, kFpga + 2 * kFpgaSector, kFpgaImage - 2 * kFpgaSector), -1);
    EXPECT_EQ(flash->release(flash), -1) << "nor can the mark be made";
}

TEST(Coprocessor, HasNoPartitionsAndAnyAddress) {
    strcpy(HWINFO.product_model, "IPC-KL7");
    load_board("present /dev/misc/spi0\nfault /dev/misc/spi0 ioctl:0x40047301 2 EIO");
    RawFlash* flash = create(1);
    const Ints results = {flash_map(flash, kFirst), write(flash, UINT32_MAX, 100), write(flash, 100, 100),
                          write(flash, 100, 100)};
    EXPECT_EQ(results, Ints({-1, 100, -1, 100})) << "the third without the upgrade mode";
    EXPECT_EQ(count("/dev/misc/spi0 write"), 2U);
    EXPECT_EQ(flash->release(flash), 0);
}

}  // namespace
