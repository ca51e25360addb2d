// Raw flash: what is erased and written where, and what is left after every fault and power cut.
#include <libmarl.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "helpers/scenario.h"
#include "sim.h"

namespace {

using scenario::Journal;
using scenario::journal_follows;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kSector = 0x10000;
constexpr uint32_t kFirst = 0x2000000;   // partition 0: 2 sectors
constexpr uint32_t kSecond = 0x2020000;  // partition 1: 16 MiB
constexpr uint32_t kSecondSize = 0x1000000;
constexpr uint32_t kFpga = 0x4000000;
constexpr uint32_t kFpgaImage = 0x80000;

const std::string kTable =
    "file /proc/mtd dev:    size   erasesize  name\n"
    "file /proc/mtd mtd0: 00020000 00010000 \"boot\"\n"
    "file /proc/mtd mtd1: 01000000 00010000 \"kernel\"\n"
    "file /proc/mtd mtd2: 00100000 00010000 \"rest\"\n";

std::string store(int partition) {
    return std::string(sim::root()) + "/dev/mtd/" + std::to_string(partition);
}

void fill_store(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<long>(bytes.size()));
}

Bytes stored(const std::string& path, size_t offset, size_t size) {
    Bytes bytes(size);
    std::ifstream(path, std::ios::binary)
        .seekg(static_cast<long>(offset))
        .read(reinterpret_cast<char*>(bytes.data()), static_cast<long>(size));
    return bytes;
}

Bytes pattern(size_t size, uint32_t seed = 0) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(static_cast<uint32_t>(i) * 2654435761U >> 24 ^ seed);
    return bytes;
}

// A board with three partitions that hold the pattern.
void load_board(const std::string& script = "") {
    sim::load((kTable + script).c_str());
    fill_store(store(0), pattern(0x20000));
    fill_store(store(1), pattern(kSecondSize));
    fill_store(store(2), pattern(0x100000));
}

RawFlash* create(int32_t mode = 0) {
    RawFlash* flash = nullptr;
    EXPECT_EQ(createRawFlash(&mode, &flash), 0);
    return flash;
}

int write(RawFlash* flash, const Bytes& bytes, uint32_t address) {
    return flash->write(flash, bytes.data(), address, static_cast<uint32_t>(bytes.size()));
}

size_t count(const std::string& start) { return Journal(sim::journal()).count(start); }

TEST(FlashTable, IsTakenWhenAllOfItParses) {
    for (const char* bad : {"", "file /proc/mtd mtd0: none\n", "file /proc/mtd mtd0: 20000\n",
                            "file /proc/mtd mtd0: 20000 0\n", "file /proc/mtd mtd0: ff000000 10000\n"}) {
        sim::load(bad);
        EXPECT_EQ(flash_init(), -1) << bad;
    }
    std::string many;
    for (int i = 0; i < 17; ++i) many += "file /proc/mtd mtd" + std::to_string(i) + ": 10000 1000 \"p\"\n";
    sim::load(many.c_str());
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
    EXPECT_EQ(count("/dev/mtd/1 ioctl"), 0U);
    EXPECT_EQ(count("/dev/mtd/1 write"), 0U);
    EXPECT_EQ(count("/dev/mtd/1 read"), kSecondSize / kSector) << "one call a sector to compare";
    for (const uint32_t sector : {0U, 7U, 255U}) image[sector * kSector + 3] ^= 0x40;
    sim::clear_journal();
    EXPECT_EQ(write(flash, image, kSecond), static_cast<int>(kSecondSize));
    EXPECT_EQ(count("/dev/mtd/1 ioctl 0x40084d02"), 3U);
    EXPECT_EQ(count("/dev/mtd/1 write"), 3U);
    EXPECT_EQ(count("umount"), 0U) << "detached by the first write already";
    EXPECT_EQ(stored(store(1), 0, kSecondSize), image);
    EXPECT_EQ(check_upgrade_map(), 1);
    EXPECT_EQ(flash->addref(flash), 0);
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_EQ(check_upgrade_map(), 1);
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_EQ(check_upgrade_map(), 0);
    // The first partition is rewritten whatever it holds.
    flash = create();
    sim::clear_journal();
    EXPECT_EQ(write(flash, pattern(0x20000), kFirst), 0x20000);
    EXPECT_EQ(count("/dev/mtd/0 ioctl"), 2U);
    EXPECT_EQ(count("/dev/mtd/0 write"), 1U);
    EXPECT_EQ(count("/dev/mtd/0 read"), 0U);
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(Flash, KeepsWhatAShortLastPieceLeaves) {
    load_board();
    RawFlash* flash = create();
    for (const auto& [address, partition] : {std::pair(kFirst, 0), std::pair(kSecond, 1)}) {
        Bytes expected = stored(store(partition), 0, 2 * kSector);
        const Bytes piece = pattern(kSector + 5, 0x99);
        std::copy(piece.begin(), piece.end(), expected.begin());
        EXPECT_EQ(write(flash, piece, address), static_cast<int>(piece.size()));
        EXPECT_EQ(stored(store(partition), 0, 2 * kSector), expected);
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
    EXPECT_EQ(bytes, Bytes(stored(store(1), 0, 16)));
    EXPECT_EQ(flash->read(flash, bytes.data(), kSecond - 16, 16), 16);
    sim::clear_journal();
    EXPECT_EQ(flash->read(flash, bytes.data(), 0x3120000, 16), -1);
    EXPECT_EQ(flash->read(flash, bytes.data(), 0x1FFFFFF, 1), -1);
    EXPECT_TRUE(journal_follows({"out \"addr=0x3120000,MTD_START[0]=0x2000000,MTD_START[3]=0x3120000\\n\"",
                                 "out \"addr=0x3120000\\n\""}));
    EXPECT_EQ(flash->erase(flash, kFpga, 1), -1);
    EXPECT_EQ(flash->write(flash, bytes.data(), kSecond + 1, 16), -1);
    EXPECT_EQ(flash->erase(flash, kSecond + 1, 16), -1);
    EXPECT_TRUE(journal_follows(
        {"out \"address doesn't  align 0x10000\"", "out \"address doesn't  align 0x10000\""}));
    sim::clear_journal();
    EXPECT_EQ(flash->read(flash, bytes.data(), 0xFFFFFFF8, 16), -1);
    EXPECT_EQ(flash->write(flash, bytes.data(), 0xFFFFFFF8, 16), -1);
    EXPECT_EQ(flash->erase(flash, kSecond, 0xFFFFFFFF), -1);
    EXPECT_EQ(sim::journal(), "") << "a range past 2^32 touches nothing";
    EXPECT_EQ(flash->erase(flash, kSecond, kSector + 1), 0);
    EXPECT_EQ(stored(store(1), 0, 2 * kSector), Bytes(2 * kSector, 0xFF)) << "the last sector wholly";
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(Flash, ReleasesTheStorageBusOnce) {
    HWINFO.store_interface = 3;
    load_board("level 9 1\nfile /dev/misc/ataen\n");
    RawFlash* flash = create();
    const Bytes bytes = pattern(kSector);
    EXPECT_EQ(write(flash, bytes, kSecond), static_cast<int>(kSector));
    EXPECT_EQ(write(flash, bytes, kSecond), static_cast<int>(kSector));
    EXPECT_EQ(count("out \"[libmarl] status = 1\\n\""), 1U);
    EXPECT_TRUE(journal_follows({"/dev/misc/ataen open rw", "sync", "umount", "umount", "sync",
                                 "/dev/misc/ataen ioctl 0x40044a01", "/dev/misc/ataen ioctl 0x80044a02",
                                 "/dev/misc/ataen close"}));
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_TRUE(journal_follows({"out \"[libmarl] idestatus =1\\n\"", "/dev/misc/rtc write 3: 1b 57 13"}));
    flash = create();
    EXPECT_EQ(flash->skip_cmos_mark(flash), 0);
    sim::clear_journal();
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_EQ(count("/dev/misc/rtc"), 0U);
}

// Whatever call fails, the result says so, nothing stays open, and the next object can do the work.
TEST(Flash, SurvivesAFaultAtEveryCall) {
    const char* const calls[] = {"/dev/mtd/0 open",  "/dev/mtd/2 open",  "/dev/mtd/1 read",
                                 "/dev/mtd/1 ioctl", "/dev/mtd/1 write", "/tmp/upgrade_ing open"};
    load_board();
    Bytes image = pattern(4 * kSector);
    for (const char* call : calls) {
        for (int nth = 1; nth <= 4; ++nth) {
            SCOPED_TRACE(std::string(call) + " " + std::to_string(nth));
            sim::clear_journal();
            for (uint32_t sector = 0; sector < 4; ++sector) ++image[sector * kSector];
            sim::run((std::string("fault ") + call + " " + std::to_string(nth) + " EIO").c_str());
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
            EXPECT_EQ(tries > 1, sim::journal().find("/dev/mtd") != std::string::npos &&
                                     sim::journal().find("-> EIO") != std::string::npos &&
                                     std::string(call).find("upgrade_ing") == std::string::npos);
            EXPECT_EQ(stored(store(1), 0, image.size()), image);
        }
    }
}

TEST(Flash, APowerCutIsMendedByWritingTheSameAgain) {
    const Bytes wanted = pattern(4 * kSector, 0x5A);
    bool finished = false;
    int cuts = 0;
    for (; !finished; ++cuts) {
        ASSERT_LT(cuts, 30);
        const scenario::BoardDirectory board;
        scenario::Options options;
        options.root = board.path();
        options.arguments = {"2020000", "40000", "5a"};
        std::string script = kTable;
        for (const char* partition : {"0", "1", "2"}) {
            std::filesystem::create_directories(board.path() + "/dev/mtd");
            fill_store(board.path() + "/dev/mtd/" + partition, pattern(0x100000));
        }
        finished =
            scenario::run("tests/flash_image", script + "cut " + std::to_string(cuts + 1) + "\n", options)
                .status == 0;
        const Bytes before = stored(board.path() + "/dev/mtd/1", 0, wanted.size());
        size_t right = 0;
        for (size_t sector = 0; sector < 4; ++sector) {
            right += memcmp(&before[sector * kSector], &wanted[sector * kSector], kSector) == 0 ? 1 : 0;
        }
        const auto again = scenario::run("tests/flash_image", script, options);
        EXPECT_EQ(again.status, 0);
        EXPECT_EQ(stored(board.path() + "/dev/mtd/1", 0, wanted.size()), wanted) << "cut " << cuts;
        EXPECT_EQ(again.journal.count("/dev/mtd/1 ioctl"), 4 - right)
            << "what was right already is left alone";
    }
    EXPECT_GT(cuts, 8) << "the cuts must reach every erase and write";
}

const std::string kFpgaBoard = "present /dev/misc/spi1\n";

std::string fpga_store() { return std::string(sim::root()) + "/dev/misc/spi1"; }

TEST(FpgaFlash, TakesItsImageSectorBySectorAndTheFirstLast) {
    load_board(kFpgaBoard);
    fill_store(fpga_store(), pattern(kFpgaImage));
    RawFlash* flash = create();
    Bytes image = pattern(kFpgaImage);
    EXPECT_GT(write(flash, image, kFpga), 0);
    EXPECT_EQ(count("/dev/misc/spi1 ioctl 0xc0046508 0 4096"), 2U)
        << "the first sector, at the start and at the end";
    EXPECT_EQ(count("/dev/misc/spi1 ioctl 0xc0046508"), 2U);
    EXPECT_EQ(count("/dev/misc/spi1 write"), 1U);
    EXPECT_TRUE(journal_follows({"/dev/misc/spi1 open rw", "/dev/misc/spi1 ioctl 0xc004650c",
                                 "/dev/misc/spi1 ioctl 0xc0046501", "/dev/misc/spi1 ioctl 0xc004650b",
                                 "out \"[libmarl] ---------upgrade fpga flash---------\\n\"",
                                 "out \"[libmarl] erasing first sector......\\n\"",
                                 "out \"[libmarl] writing first sector......\\n\""}));
    image[4096 * 3] ^= 1;
    image[0] ^= 1;
    sim::clear_journal();
    // In pieces: the first call saves the first sector, the last one writes it.
    EXPECT_GE(flash->write(flash, image.data(), kFpga, 4096), 0);
    EXPECT_EQ(stored(fpga_store(), 0, 4096), Bytes(4096, 0xFF)) << "an image that is not whole never runs";
    EXPECT_GT(flash->write(flash, image.data() + 4096, kFpga + 4096, kFpgaImage - 4096), 0);
    EXPECT_EQ(stored(fpga_store(), 0, kFpgaImage), image);
    EXPECT_EQ(count("out \"<fpga flash write>addr = 0x3000\\n\""), 1U);
    Bytes back(8192);
    EXPECT_EQ(flash->read(flash, back.data(), kFpga + 4096, 8192), 8192);
    EXPECT_EQ(back, Bytes(image.begin() + 4096, image.begin() + 12288));
    EXPECT_EQ(flash->write(flash, image.data(), kFpga + 1, 4096), -1);
    EXPECT_EQ(flash->write(flash, image.data(), kFpga, 4095), -1);
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_TRUE(journal_follows({"/dev/misc/spi1 ioctl 0xc0046502", "/dev/misc/spi1 close"}));
    // Without a first sector of this session the end of the image is refused: there is nothing to put in its
    // place.
    flash = create();
    sim::clear_journal();
    EXPECT_EQ(flash->write(flash, image.data() + 4096, kFpga + 4096, kFpgaImage - 4096), -1);
    EXPECT_EQ(count("/dev/misc/spi1 ioctl 0xc0046508"), 0U);
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(FpgaFlash, IsOpenedOnKnownDevicesOnly) {
    for (const auto& [number, accepted] :
         {std::pair(480, false), std::pair(481, true), std::pair(549, true), std::pair(550, false),
          std::pair(580, false), std::pair(581, true), std::pair(649, true), std::pair(650, false)}) {
        sim::load((kFpgaBoard + "fpga id " + std::to_string(number)).c_str());
        EXPECT_EQ(fpga_flash_open(), accepted ? 0 : -1) << number;
        fpga_flash_close();
        EXPECT_EQ(count("/dev/misc/spi1 open rw"), count("/dev/misc/spi1 close"));
    }
    Bytes bytes(4096);
    EXPECT_EQ(fpga_flash_read(bytes.data(), 4096, 0), -1);
    EXPECT_EQ(fpga_flash_write(bytes.data(), 4096, 0), -1);
    for (const char* fault : {"ioctl:0xc0046501", "ioctl:0xc004650b", "ioctl:0xc004650c", "open"}) {
        sim::load((kFpgaBoard + "fault /dev/misc/spi1 " + fault + " 1 EIO").c_str());
        EXPECT_EQ(fpga_flash_open(), -1) << fault;
        EXPECT_EQ(fpga_flash_open(), 0) << fault;
        fpga_flash_close();
    }
}

// Whatever call of an image fails, the result says so, and writing the image again completes it.
TEST(FpgaFlash, SurvivesAFaultAtEveryKindOfCall) {
    const Bytes image = pattern(kFpgaImage);
    Bytes before = image;
    before[5 * 4096] ^= 1;
    before[kFpgaImage - 1] ^= 1;
    for (const std::string fault : {"EIO", "short 9"}) {
        for (const std::string op : {"read", "write", "lseek", "ioctl"}) {
            if (fault != "EIO" && (op == "lseek" || op == "ioctl")) continue;
            for (const int nth : {1, 2, 3, 4, 5, 6, 7, 127, 128, 129, 130, 131}) {
                SCOPED_TRACE(op + " " + std::to_string(nth) + " " + fault);
                sim::load(
                    (kFpgaBoard + "fault /dev/misc/spi1 " + op + " " + std::to_string(nth) + " " + fault)
                        .c_str());
                fill_store(fpga_store(), before);
                const auto struck = [&] {
                    const std::string journal = sim::journal();
                    return journal.find("-> EIO") != std::string::npos ||
                           journal.find(" 9: ") != std::string::npos;
                };
                const bool opened = fpga_flash_open() == 0;
                EXPECT_EQ(opened, !struck());
                if (!opened) {
                    EXPECT_EQ(fpga_flash_open(), 0);
                }
                const int result = fpga_flash_write(image.data(), kFpgaImage, 0);
                EXPECT_EQ(result < 0, opened && struck());
                if (result < 0) {
                    EXPECT_GT(fpga_flash_write(image.data(), kFpgaImage, 0), 0);
                }
                EXPECT_EQ(stored(fpga_store(), 0, kFpgaImage), image);
                fpga_flash_close();
                EXPECT_EQ(count("/dev/misc/spi1 open rw"), count("/dev/misc/spi1 close"));
            }
        }
    }
}

const std::string kLink = "present /dev/misc/spi0\n";

int upgrade(const Bytes& bytes, uint32_t address = 0x2000000) {
    return dm365_upgrade_write(dm365_spi_open(), bytes.data(), static_cast<uint32_t>(bytes.size()), address,
                               0x2468);
}

TEST(CoprocessorUpgrade, ShipsChecksummedFrames) {
    sim::load(kLink.c_str());
    EXPECT_EQ(dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x1357), 0);
    EXPECT_EQ(dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x1111), -1);
    EXPECT_EQ(dm365_upgrade_write(-1, nullptr, 0, 0, 0x2468), -1);
    EXPECT_EQ(upgrade(pattern(1000)), 1000);
    EXPECT_NEAR(sim::now(), 0.04 + 0.02, 0.001) << "two probes, and one look at the acknowledgement";
    EXPECT_EQ(upgrade(pattern(70000)), 65536) << "one frame a call";
    EXPECT_EQ(upgrade(Bytes{'u', 'p'}), 2) << "shorter than the end mark";
    EXPECT_TRUE(journal_follows(
        {"/dev/misc/spi0 ioctl 0x40047305", "out \"[DEBUG]=======>: Libmarl:  transmation alive",
         "/dev/misc/spi0 ioctl 0x40047301 9320", "/dev/misc/spi0 write 1016: 00 00 00 02 e8 03 00 00",
         "/dev/misc/spi0 ioctl 0x80047304", "/dev/misc/spi0 write 65552", "/dev/misc/spi0 write 18"}));
    EXPECT_EQ(count("/dev/misc/spi0 ioctl 0x40047305"), 2U) << "the link is probed once";
    Bytes end = pattern(100);
    memcpy(end.data(), "upgrade-end", 11);
    const double before = sim::now();
    EXPECT_EQ(upgrade(end), 16);
    EXPECT_NEAR(sim::now() - before, 5, 0.001);
    EXPECT_TRUE(journal_follows({"/dev/misc/spi0 write 16: 00 00 00 02 64 00 00 00",
                                 "out \"======>: upgrade365 sucess: <========\\n\""}));
    sim::run("spi0 mute");
    const double unanswered = sim::now();
    EXPECT_EQ(upgrade(end), 16);
    EXPECT_NEAR(sim::now() - unanswered, 5 + 90 + 5, 0.001);
    EXPECT_TRUE(
        journal_follows({"out \"======>: upgrade365 timeout when upgrade last buffer: <========\\n\""}));
    const double silent = sim::now();
    EXPECT_EQ(upgrade(pattern(10)), -1);
    EXPECT_NEAR(sim::now() - silent, 0.02 + 6, 0.001);
    EXPECT_TRUE(journal_follows({"err \"[LIBMARL]====>:ERROR,  dm365 flash No ACK<======\\n\""}));
}

TEST(CoprocessorUpgrade, ResendsFourTimes) {
    sim::load((kLink + "spi0 acks 7788 7788 7788 7788 55aa").c_str());
    EXPECT_EQ(upgrade(pattern(100)), 100);
    EXPECT_EQ(count("/dev/misc/spi0 write 116"), 5U);
    EXPECT_TRUE(journal_follows({"out \"dm365flash: resend updata time = 4\\n\""}));
    sim::run("spi0 acks 7788 7788 7788 7788 7788 55aa");
    EXPECT_EQ(upgrade(pattern(100)), -1);
    EXPECT_TRUE(journal_follows({"out \"dm365flash: resend updata failed\\n\""}));
}

TEST(CoprocessorUpgrade, OffersAFrameAgainWhileTheLinkAnswers) {
    sim::load((kLink + "fault /dev/misc/spi0 write 1..5 EIO").c_str());
    EXPECT_EQ(upgrade(pattern(100)), 100) << "the fifth rewrite goes";
    sim::load((kLink + "fault /dev/misc/spi0 write 1..6 EIO").c_str());
    EXPECT_EQ(upgrade(pattern(100)), -1);
    sim::load((kLink + "fault /dev/misc/spi0 write 1 EIO\nspi0 alive 0").c_str());
    const double before = sim::now();
    EXPECT_EQ(upgrade(pattern(100)), -1);
    EXPECT_NEAR(sim::now() - before, 2, 0.001) << "50 probes";
    EXPECT_TRUE(journal_follows(
        {"err \"[libmarl]: ERROR, transmit upgrade-data failed\\n\"",
         "out \"[libmarl]: ERROR, Probe SPI between 6441 and 365 failed, upgrade failed\\n\""}));
}

// A call that fails once costs nothing but the first open: the link is asked again, the frame offered again.
TEST(CoprocessorUpgrade, SurvivesAFaultAtEveryCall) {
    sim::load((kLink + "fault /dev/misc/spi0 open 1 EIO").c_str());
    EXPECT_EQ(upgrade(pattern(100)), -1);
    EXPECT_TRUE(journal_follows({"err \"open dm6446 spi fail\\n\"", "err \"fd not open\\n\""}));
    for (const char* call : {"ioctl:0x40047305", "ioctl:0x40047301", "ioctl:0x80047304", "write"}) {
        for (const int nth : {1, 2}) {
            SCOPED_TRACE(call);
            sim::load((kLink + "fault /dev/misc/spi0 " + call + " " + std::to_string(nth) + " EIO").c_str());
            EXPECT_EQ(upgrade(pattern(100)), 100);
            EXPECT_EQ(upgrade(pattern(100)), 100);
        }
    }
}

TEST(CoprocessorUpgrade, ADeadLinkFailsTheFirstCallAfterTenSeconds) {
    sim::load((kLink + "spi0 alive 0").c_str());
    EXPECT_EQ(upgrade(pattern(100)), -1);
    EXPECT_NEAR(sim::now(), 10, 0.001);
    EXPECT_EQ(count("/dev/misc/spi0 write"), 0U);
    EXPECT_EQ(upgrade(pattern(100)), 100) << "later calls do not probe";
}

TEST(CoprocessorUpgrade, IsWhatTheFlashObjectDoesOnItsBoards) {
    strcpy(HWINFO.product_model, "IPC-KL7");
    load_board(kLink + "file /mnt/mtd/dm365_version old\n");
    RawFlash* flash = create(1);
    EXPECT_FALSE(std::filesystem::exists(std::string(sim::root()) + "/mnt/mtd/dm365_version"));
    RawFlashInfo info{};
    EXPECT_EQ(flash->getinfo(flash, &info), 0);
    EXPECT_EQ(info.size, 0x800000U);
    EXPECT_EQ(info.sector_size, kSector / 2);
    EXPECT_EQ(write(flash, pattern(100), 0x1234), 100);
    Bytes bytes(4);
    EXPECT_EQ(flash->read(flash, bytes.data(), kSecond, 4), -1);
    EXPECT_EQ(flash->erase(flash, kSecond, kSector), -1);
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
