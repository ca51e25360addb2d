// Raw flash: what is erased and written where, and what is left after every fault and power cut.
#include <libmarl.h>

#include <cstring>

#include "helpers/board.h"

namespace {

using namespace board;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kSector = 0x10000;
constexpr uint32_t kFirst = 0x2000000;   // partition 0: 2 sectors
constexpr uint32_t kSecond = 0x2020000;  // partition 1: 16 MiB
constexpr uint32_t kSecondSize = 0x1000000;
constexpr uint32_t kFpga = 0x4000000;
constexpr uint32_t kFpgaSector = 0x1000;
constexpr uint32_t kFpgaImage = 0x80000;

const std::string kTable =
    "file /proc/mtd dev:    size   erasesize  name\n"
    "file /proc/mtd mtd0: 00020000 00010000 \"boot\"\n"
    "file /proc/mtd mtd1: 01000000 00010000 \"kernel\"\n"
    "file /proc/mtd mtd2: 00100000 00010000 \"rest\"\n";

const std::string kStore = "/dev/mtd/1";
const std::string kFpgaStore = "/dev/misc/spi1";

void fill(const std::string& path, const Bytes& bytes) {
    write_file(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

Bytes stored(const std::string& path, size_t size) {
    const std::string bytes = read_file(path).substr(0, size);
    return {bytes.begin(), bytes.end()};
}

Bytes pattern(size_t size, uint32_t seed = 0) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(static_cast<uint32_t>(i) * 2654435761U >> 24 ^ seed);
    return bytes;
}

// A board with three partitions that hold the pattern.
void load_board(const std::string& script = "") {
    load(kTable + script);
    fill("/dev/mtd/0", pattern(0x20000));
    fill(kStore, pattern(kSecondSize));
    fill("/dev/mtd/2", pattern(0x100000));
}

RawFlash* create(int32_t mode = 0) {
    RawFlash* flash = nullptr;
    EXPECT_EQ(createRawFlash(&mode, &flash), 0);
    return flash;
}

int write(RawFlash* flash, const Bytes& bytes, uint32_t address) {
    return flash->write(flash, bytes.data(), address, static_cast<uint32_t>(bytes.size()));
}

TEST(FlashTable, HasFifteenRowsAtMost) {
    std::string many;
    for (int i = 0; i < 17; ++i) many += "file /proc/mtd mtd" + std::to_string(i) + ": 10000 1000 \"p\"\n";
    load(many);
    EXPECT_EQ(flash_init(), 15);
    EXPECT_TRUE(journal_follows({"out \"[libmarl] ####CFG_FLASH_SEC_SIZE=0x1000\\n\"",
                                 "out \"[libmarl] NUM_MTDS=15\\n\"",
                                 "out \"[libmarl] ####MTD_START[0]=0x2000000\\n\"",
                                 "out \"[libmarl] ####MTD_START[15]=0x20f0000\\n\""}));
}

TEST(Flash, WritesOnlyWhatDiffers) {
    load_board();
    RawFlash* flash = create();
    Bytes image = pattern(kSecondSize);
    EXPECT_EQ(write(flash, image, kSecond), static_cast<int>(kSecondSize));
    EXPECT_EQ(count("/dev/mtd/1 ioctl") + count("/dev/mtd/1 write"), 0U);
    EXPECT_EQ(count("/dev/mtd/1 read"), kSecondSize / kSector) << "one call a sector to compare";
    for (const uint32_t sector : {0U, 7U, 255U}) image[sector * kSector + 3] ^= 0x40;
    sim::clear_journal();
    EXPECT_EQ(write(flash, image, kSecond), static_cast<int>(kSecondSize));
    EXPECT_EQ(counts({"/dev/mtd/1 ioctl 0x40084d02", "/dev/mtd/1 write"}), Ints(2, 3));
    EXPECT_EQ(count("umount"), 0U) << "detached by the first write already";
    EXPECT_EQ(stored(kStore, kSecondSize), image);
    EXPECT_EQ(Ints({check_upgrade_map(), flash->addref(flash), flash->release(flash), check_upgrade_map(),
                    flash->release(flash), check_upgrade_map()}),
              Ints({1, 0, 0, 1, 0, 0}));
    // The first partition is rewritten whatever it holds.
    flash = create();
    sim::clear_journal();
    EXPECT_EQ(write(flash, pattern(0x20000), kFirst), 0x20000);
    EXPECT_EQ(counts({"/dev/mtd/0 ioctl", "/dev/mtd/0 write", "/dev/mtd/0 read"}), Ints({2, 1, 0}));
    // A short last piece leaves what is behind it.
    for (const auto& [address, partition] :
         {std::pair(kFirst, "/dev/mtd/0"), std::pair(kSecond, "/dev/mtd/1")}) {
        Bytes expected = stored(partition, 2 * kSector);
        const Bytes piece = pattern(kSector + 5, 0x99);
        std::copy(piece.begin(), piece.end(), expected.begin());
        EXPECT_EQ(write(flash, piece, address), static_cast<int>(piece.size()));
        EXPECT_EQ(stored(partition, 2 * kSector), expected);
    }
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(Flash, MapsAddressesAndRefusesTheRest) {
    load_board();
    RawFlash* flash = create();
    RawFlash* second = nullptr;
    const int32_t mode = 0;
    EXPECT_EQ(createRawFlash(&mode, &second), -1);
    RawFlashInfo info{};
    EXPECT_EQ(flash->getinfo(flash, &info), 0);
    EXPECT_EQ(info.size, 0x1000000U);
    EXPECT_EQ(info.sector_size, kSector);
    Bytes bytes(16);
    EXPECT_EQ(flash->read(flash, bytes.data(), kSecond, 16), 16);
    EXPECT_EQ(bytes, stored(kStore, 16));
    EXPECT_EQ(flash->read(flash, bytes.data(), kSecond - 16, 16), 16);
    sim::clear_journal();
    EXPECT_EQ(Ints({flash->read(flash, bytes.data(), 0x3120000, 16),
                    flash->read(flash, bytes.data(), 0x1FFFFFF, 1), flash->erase(flash, kFpga, 1),
                    write(flash, bytes, kSecond + 1), flash->erase(flash, kSecond + 1, 16)}),
              Ints(5, -1));
    EXPECT_TRUE(journal_follows({"out \"addr=0x3120000,MTD_START[0]=0x2000000,MTD_START[3]=0x3120000\\n\"",
                                 "out \"addr=0x3120000\\n\"", "out \"address doesn't  align 0x10000\"",
                                 "out \"address doesn't  align 0x10000\""}));
    sim::clear_journal();
    EXPECT_EQ(Ints({flash->read(flash, bytes.data(), 0xFFFFFFF8, 16), write(flash, bytes, 0xFFFFFFF8),
                    flash->erase(flash, kSecond, 0xFFFFFFFF)}),
              Ints(3, -1));
    EXPECT_EQ(sim::journal(), "") << "a range past 2^32 touches nothing";
    EXPECT_EQ(flash->erase(flash, kSecond, kSector + 1), 0);
    EXPECT_EQ(stored(kStore, 2 * kSector), Bytes(2 * kSector, 0xFF)) << "the last sector wholly";
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(Flash, ReleasesTheStorageBusOnce) {
    HWINFO.store_interface = 3;
    load_board("level 9 1\nfile /dev/misc/ataen\n");
    RawFlash* flash = create();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(write(flash, pattern(kSector), kSecond), static_cast<int>(kSector));
    EXPECT_EQ(count("out \"[libmarl] status = 1\\n\""), 1U);
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_TRUE(journal_follows({"/dev/misc/ataen open rw", "sync", "umount", "umount", "sync",
                                 "/dev/misc/ataen ioctl 0x40044a01", "/dev/misc/ataen ioctl 0x80044a02",
                                 "/dev/misc/ataen close", "out \"[libmarl] idestatus =1\\n\"",
                                 "/dev/misc/rtc write 3: 1b 57 13"}));
    flash = create();
    EXPECT_EQ(flash->skip_cmos_mark(flash), 0);
    sim::clear_journal();
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_EQ(count("/dev/misc/rtc"), 0U);
}

// Whatever call fails, the result says so, nothing stays open, and the next object can do the work.
TEST(Flash, SurvivesAFaultAtEveryCall) {
    load_board();
    Bytes image = pattern(4 * kSector);
    for (const std::string call : {"/dev/mtd/0 open", "/dev/mtd/2 open", "/dev/mtd/1 read",
                                   "/dev/mtd/1 ioctl", "/dev/mtd/1 write", "/tmp/upgrade_ing open"}) {
        for (int nth = 1; nth <= 4; ++nth) {
            SCOPED_TRACE(call + " " + std::to_string(nth));
            sim::clear_journal();
            for (uint32_t sector = 0; sector < 4; ++sector) ++image[sector * kSector];
            run("fault " + call + " " + std::to_string(nth) + " EIO");
            const int32_t mode = 0;
            RawFlash* flash = nullptr;
            int tries = 0;
            for (bool complete = false; !complete; ++tries) {
                ASSERT_LT(tries, 6);
                if (createRawFlash(&mode, &flash) < 0) continue;
                complete = write(flash, image, kSecond) == static_cast<int>(image.size());
                EXPECT_EQ(flash->release(flash), 0);
                EXPECT_EQ(count("/dev/mtd/1 open rw"), count("/dev/mtd/1 close"));
            }
            EXPECT_EQ(tries > 1, seen("/dev/mtd") && seen("-> EIO") && call != "/tmp/upgrade_ing open");
            EXPECT_EQ(stored(kStore, image.size()), image);
        }
    }
}

TEST(Flash, APowerCutIsMendedByWritingTheSameAgain) {
    const Bytes wanted = pattern(4 * kSector, 0x5A);
    int cuts = 0;
    for (bool finished = false; !finished; ++cuts) {
        ASSERT_LT(cuts, 30);
        const scenario::BoardDirectory directory;
        const scenario::Options options = {.arguments = {"2020000", "40000", "5a"}, .root = directory.path()};
        std::filesystem::create_directories(directory.path() + "/dev/mtd");
        for (const char* partition : {"0", "1", "2"}) {
            const Bytes old = pattern(0x100000);
            std::ofstream(directory.path() + "/dev/mtd/" + partition, std::ios::binary)
                << std::string(old.begin(), old.end());
        }
        const auto write_image = [&](const std::string& script) {
            return scenario::run("tests/flash_image", kTable + script, options);
        };
        finished = write_image("cut " + std::to_string(cuts + 1) + "\n").status == 0;
        const std::string before = directory.read(kStore);
        size_t wrong = 0;
        for (size_t sector = 0; sector < 4; ++sector)
            wrong += memcmp(&before[sector * kSector], &wanted[sector * kSector], kSector) != 0 ? 1 : 0;
        const auto again = write_image("");
        EXPECT_EQ(again.status, 0);
        EXPECT_EQ(memcmp(directory.read(kStore).data(), wanted.data(), wanted.size()), 0) << "cut " << cuts;
        EXPECT_EQ(again.journal.count("/dev/mtd/1 ioctl"), wrong) << "what was right already is left alone";
    }
    EXPECT_GT(cuts, 8) << "the cuts must reach every erase and write";
}

const std::string kFpgaBoard = "present /dev/misc/spi1\n";

TEST(FpgaFlash, TakesItsImageSectorBySectorAndTheFirstLast) {
    load_board(kFpgaBoard);
    fill(kFpgaStore, pattern(kFpgaImage));
    RawFlash* flash = create();
    Bytes image = pattern(kFpgaImage);
    EXPECT_GT(write(flash, image, kFpga), 0);
    EXPECT_EQ(count("/dev/misc/spi1 ioctl 0xc0046508 0 4096"), 2U)
        << "the first sector, at the start and at the end";
    EXPECT_EQ(counts({"/dev/misc/spi1 ioctl 0xc0046508", "/dev/misc/spi1 write"}), Ints({2, 1}));
    EXPECT_TRUE(journal_follows({"/dev/misc/spi1 open rw", "/dev/misc/spi1 ioctl 0xc004650c",
                                 "/dev/misc/spi1 ioctl 0xc0046501", "/dev/misc/spi1 ioctl 0xc004650b",
                                 "out \"[libmarl] ---------upgrade fpga flash---------\\n\"",
                                 "out \"[libmarl] erasing first sector......\\n\"",
                                 "out \"[libmarl] writing first sector......\\n\""}));
    image[kFpgaSector * 3] ^= 1;
    image[0] ^= 1;
    sim::clear_journal();
    // In pieces: the first call saves the first sector, the last one writes it.
    const Bytes first(image.begin(), image.begin() + kFpgaSector),
        rest(image.begin() + kFpgaSector, image.end());
    EXPECT_GE(write(flash, first, kFpga), 0);
    EXPECT_EQ(stored(kFpgaStore, kFpgaSector), Bytes(kFpgaSector, 0xFF))
        << "an image that is not whole never runs";
    EXPECT_GT(write(flash, rest, kFpga + kFpgaSector), 0);
    EXPECT_EQ(stored(kFpgaStore, kFpgaImage), image);
    EXPECT_EQ(count("out \"<fpga flash write>addr = 0x3000\\n\""), 1U);
    Bytes back(rest.size());
    EXPECT_EQ(flash->read(flash, back.data(), kFpga + kFpgaSector, kFpgaImage - kFpgaSector),
              static_cast<int>(rest.size()));
    EXPECT_EQ(back, rest);
    EXPECT_EQ(Ints({write(flash, first, kFpga + 1), flash->write(flash, image.data(), kFpga, kFpgaSector - 1),
                    flash->release(flash)}),
              Ints({-1, -1, 0}));
    EXPECT_TRUE(journal_follows({"/dev/misc/spi1 ioctl 0xc0046502", "/dev/misc/spi1 close"}));
    // Without a first sector of this session the end of the image is refused: there is nothing to put in its
    // place.
    flash = create();
    sim::clear_journal();
    EXPECT_EQ(write(flash, rest, kFpga + kFpgaSector), -1);
    EXPECT_EQ(count("/dev/misc/spi1 ioctl 0xc0046508"), 0U);
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(FpgaFlash, IsOpenedOnKnownDevicesOnly) {
    const std::pair<int, int> ids[] = {{480, -1}, {481, 0}, {549, 0}, {550, -1},
                                       {580, -1}, {581, 0}, {649, 0}, {650, -1}};
    for (const auto& [id, result] : ids) {
        load(kFpgaBoard + "fpga id " + std::to_string(id));
        EXPECT_EQ(fpga_flash_open(), result) << id;
        fpga_flash_close();
        EXPECT_EQ(count("/dev/misc/spi1 open rw"), count("/dev/misc/spi1 close"));
    }
    Bytes bytes(kFpgaSector);
    EXPECT_EQ(
        Ints({fpga_flash_read(bytes.data(), kFpgaSector, 0), fpga_flash_write(bytes.data(), kFpgaSector, 0)}),
        Ints(2, -1));
    for (const std::string fault : {"ioctl:0xc0046501", "ioctl:0xc004650b", "ioctl:0xc004650c", "open"}) {
        load(kFpgaBoard + "fault /dev/misc/spi1 " + fault + " 1 EIO");
        EXPECT_EQ(fpga_flash_open(), -1) << fault;
        EXPECT_EQ(fpga_flash_open(), 0) << fault;
        fpga_flash_close();
    }
}

// Whatever call of an image fails, the result says so, and writing the image again completes it.
TEST(FpgaFlash, SurvivesAFaultAtEveryKindOfCall) {
    const Bytes image = pattern(kFpgaImage);
    Bytes before = image;
    before[5 * kFpgaSector] ^= 1;
    before[kFpgaImage - 1] ^= 1;
    const auto struck = [] { return seen("-> EIO") || seen(" 9: "); };
    for (const auto& [op, how] : {std::pair("read ", " EIO"),
                                  {"write ", " EIO"},
                                  {"lseek ", " EIO"},
                                  {"ioctl ", " EIO"},
                                  {"read ", " short 9"},
                                  {"write ", " short 9"}}) {
        for (const int nth : {1, 2, 3, 4, 5, 6, 7, 127, 128, 129, 130, 131}) {
            const std::string fault = op + std::to_string(nth) + how;
            SCOPED_TRACE(fault);
            load(kFpgaBoard + "fault /dev/misc/spi1 " + fault);
            fill(kFpgaStore, before);
            const bool opened = fpga_flash_open() == 0;
            EXPECT_EQ(opened, !struck());
            EXPECT_TRUE(opened || fpga_flash_open() == 0);
            const int result = fpga_flash_write(image.data(), kFpgaImage, 0);
            EXPECT_EQ(result < 0, opened && struck());
            EXPECT_TRUE(result >= 0 || fpga_flash_write(image.data(), kFpgaImage, 0) > 0);
            EXPECT_EQ(stored(kFpgaStore, kFpgaImage), image);
            fpga_flash_close();
            EXPECT_EQ(count("/dev/misc/spi1 open rw"), count("/dev/misc/spi1 close"));
        }
    }
}

const std::string kLink = "present /dev/misc/spi0\n";

int upgrade(const Bytes& bytes, uint32_t address = 0x2000000) {
    return dm365_upgrade_write(dm365_spi_open(), bytes.data(), static_cast<uint32_t>(bytes.size()), address,
                               0x2468);
}

// What an upgrade with these bytes returns, and the seconds that it takes.
void expect_upgrade(const Bytes& bytes, int result, double seconds) {
    const double before = sim::now();
    EXPECT_EQ(upgrade(bytes), result);
    EXPECT_NEAR(sim::now() - before, seconds, 0.001);
}

TEST(CoprocessorUpgrade, ShipsChecksummedFrames) {
    load(kLink);
    EXPECT_EQ(Ints({dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x1357),
                    dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x1111),
                    dm365_upgrade_write(-1, nullptr, 0, 0, 0x2468)}),
              Ints({0, -1, -1}));
    expect_upgrade(pattern(1000), 1000, 0.04 + 0.02);  // two probes, and one look at the acknowledgement
    EXPECT_EQ(upgrade(pattern(70000)), 65536) << "one frame a call";
    EXPECT_EQ(upgrade(Bytes{'u', 'p'}), 2) << "shorter than the end mark";
    EXPECT_TRUE(journal_follows(
        {"/dev/misc/spi0 ioctl 0x40047305", "out \"[DEBUG]=======>: Libmarl:  transmation alive",
         "/dev/misc/spi0 ioctl 0x40047301 9320", "/dev/misc/spi0 write 1016: 00 00 00 02 e8 03 00 00",
         "/dev/misc/spi0 ioctl 0x80047304", "/dev/misc/spi0 write 65552", "/dev/misc/spi0 write 18"}));
    EXPECT_EQ(count("/dev/misc/spi0 ioctl 0x40047305"), 2U) << "the link is probed once";
    Bytes end = pattern(100);
    memcpy(end.data(), "upgrade-end", 11);
    expect_upgrade(end, 16, 5);
    sim::run("spi0 mute");
    expect_upgrade(end, 16, 5 + 90 + 5);
    expect_upgrade(pattern(10), -1, 0.02 + 6);
    EXPECT_TRUE(journal_follows({"/dev/misc/spi0 write 16: 00 00 00 02 64 00 00 00",
                                 "out \"======>: upgrade365 sucess: <========\\n\"",
                                 "out \"======>: upgrade365 timeout when upgrade last buffer: <========\\n\"",
                                 "err \"[LIBMARL]====>:ERROR,  dm365 flash No ACK<======\\n\""}));
}

TEST(CoprocessorUpgrade, ResendsFourTimes) {
    load(kLink + "spi0 acks 7788 7788 7788 7788 55aa");
    EXPECT_EQ(upgrade(pattern(100)), 100);
    EXPECT_EQ(count("/dev/misc/spi0 write 116"), 5U);
    sim::run("spi0 acks 7788 7788 7788 7788 7788 55aa");
    EXPECT_EQ(upgrade(pattern(100)), -1);
    EXPECT_TRUE(journal_follows(
        {"out \"dm365flash: resend updata time = 4\\n\"", "out \"dm365flash: resend updata failed\\n\""}));
}

// A call that fails costs nothing but the first open: the link is asked again, the frame offered again while
// the link answers.
TEST(CoprocessorUpgrade, SurvivesAFaultAtEveryCall) {
    load(kLink + "fault /dev/misc/spi0 open 1 EIO");
    EXPECT_EQ(upgrade(pattern(100)), -1);
    EXPECT_TRUE(journal_follows({"err \"open dm6446 spi fail\\n\"", "err \"fd not open\\n\""}));
    for (const std::string call : {"ioctl:0x40047305 1", "ioctl:0x40047305 2", "ioctl:0x80047304 1",
                                   "ioctl:0x80047304 2", "write 1", "write 2", "write 1..5"}) {
        SCOPED_TRACE(call);
        load(kLink + "fault /dev/misc/spi0 " + call + " EIO");
        EXPECT_EQ(Ints({upgrade(pattern(100)), upgrade(pattern(100))}), Ints(2, 100));
    }
    load(kLink + "fault /dev/misc/spi0 write 1..6 EIO");
    EXPECT_EQ(upgrade(pattern(100)), -1);
    load(kLink + "fault /dev/misc/spi0 write 1 EIO\nspi0 alive 0");
    expect_upgrade(pattern(100), -1, 2);  // 50 probes
    EXPECT_TRUE(journal_follows(
        {"err \"[libmarl]: ERROR, transmit upgrade-data failed\\n\"",
         "out \"[libmarl]: ERROR, Probe SPI between 6441 and 365 failed, upgrade failed\\n\""}));
}

TEST(CoprocessorUpgrade, ADeadLinkFailsTheFirstCallAfterTenSeconds) {
    load(kLink + "spi0 alive 0");
    expect_upgrade(pattern(100), -1, 10);
    EXPECT_EQ(count("/dev/misc/spi0 write"), 0U);
    EXPECT_EQ(upgrade(pattern(100)), 100) << "later calls do not probe";
}

TEST(CoprocessorUpgrade, IsWhatTheFlashObjectDoesOnItsBoards) {
    strcpy(HWINFO.product_model, "IPC-KL7");
    load_board(kLink + "file /mnt/mtd/dm365_version old\n");
    RawFlash* flash = create(1);
    EXPECT_FALSE(std::filesystem::exists(path_of("/mnt/mtd/dm365_version")));
    RawFlashInfo info{};
    EXPECT_EQ(flash->getinfo(flash, &info), 0);
    EXPECT_EQ(info.size, 0x800000U);
    EXPECT_EQ(info.sector_size, kSector / 2);
    EXPECT_EQ(write(flash, pattern(100), 0x1234), 100);
    Bytes bytes(4);
    EXPECT_EQ(Ints({flash->read(flash, bytes.data(), kSecond, 4), flash->erase(flash, kSecond, kSector)}),
              Ints(2, -1));
    EXPECT_TRUE(journal_follows(
        {"/dev/misc/spi0 write 116: 34 12 00 00", "out \"dm6446 spi driver not support !\\n\""}));
    EXPECT_EQ(count("/dev/mtd/"), 0U);
    EXPECT_EQ(flash->release(flash), 0);
    flash = create(0);
    EXPECT_EQ(flash->getinfo(flash, &info), 0);
    EXPECT_EQ(info.size, 0x1000000U) << "the next object is the host's flash again";
    EXPECT_EQ(flash->release(flash), 0);
}

}  // namespace
