// Raw flash, FPGA flash and co-processor upgrade: what is written where, what is refused and told, and what
// is left after every fault and power cut.
#include <libmarl.h>

#include <cstring>

#include "helpers/board.h"

namespace {

using namespace board;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kSector = 0x10000;
constexpr uint32_t kFirst = 0x2000000;   // 2 sectors
constexpr uint32_t kSecond = 0x2020000;  // 16 sectors
constexpr uint32_t kSecondSize = 0x100000;
constexpr uint32_t kThird = 0x2120000;  // goes on 2 sectors behind the base of the FPGA flash
constexpr uint32_t kFpga = 0x4000000;
constexpr uint32_t kFpgaSector = 0x1000;
constexpr uint32_t kFpgaImage = 0x80000;

const std::string kRows =
    "file /proc/mtd dev:    size   erasesize  name\nfile /proc/mtd mtd0: 00020000 00010000 \"boot\"\n"
    "file /proc/mtd mtd1: 00100000 00010000 \"kernel\"\n";
const std::string kTable = kRows + "file /proc/mtd mtd2: 01f00000 00010000 \"rest\"\n";
const std::string kStore = "/dev/mtd/1", kFpgaStore = "/dev/misc/spi1";
const std::string kErase = "/dev/misc/spi1 ioctl 0xc0046508";
const std::string kFpgaBoard = "present /dev/misc/spi1\n", kLink = "present /dev/misc/spi0\n";

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

// A board with three partitions and an FPGA flash; the first two hold the pattern.
void load_board(const std::string& script = "", const std::string& table = kTable) {
    load(table + kFpgaBoard + "present /dev/mtd/2\ntruncate /dev/mtd/2 32505856\ntruncate " + kFpgaStore +
         " 524288\n" + script);
    fill("/dev/mtd/0", pattern(2 * kSector));
    fill(kStore, pattern(kSecondSize));
}

constexpr int32_t kHost = 0, kCoprocessor = 1;

RawFlash* create(int32_t mode = kHost) {
    RawFlash* flash = nullptr;
    EXPECT_EQ(createRawFlash(&mode, &flash), 0);
    return flash;
}

int write(RawFlash* flash, const Bytes& bytes, uint32_t address) {
    return flash->write(flash, bytes.data(), address, static_cast<uint32_t>(bytes.size()));
}

int write(RawFlash* flash, uint32_t address, uint32_t size) {
    return write(flash, Bytes(size, 0x5A), address);
}

Ints info_of(RawFlash* flash) {
    RawFlashInfo info{};
    const int result = flash->getinfo(flash, &info);
    return {result, static_cast<int>(info.size * info.count), static_cast<int>(info.sector_size)};
}

TEST(Flash, WritesOnlyWhatDiffers) {
    load_board();
    RawFlash* flash = create();
    Bytes image = pattern(kSecondSize);
    EXPECT_EQ(write(flash, image, kSecond), static_cast<int>(kSecondSize));
    EXPECT_EQ(counts({"/dev/mtd/1 ioctl", "/dev/mtd/1 write", "/dev/mtd/1 read", "umount2", "err"}),
              Ints({0, 0, 16, 2, 0}))
        << "one call a sector to compare";
    for (const uint32_t sector : {0U, 7U, 15U}) image[sector * kSector + 3] ^= 0x40;
    sim::clear_journal();
    EXPECT_EQ(write(flash, image, kSecond), static_cast<int>(kSecondSize));
    EXPECT_EQ(counts({"/dev/mtd/1 ioctl 0x40084d02", "/dev/mtd/1 write", "umount"}), Ints({3, 3, 0}))
        << "detached by the first write already";
    EXPECT_EQ(stored(kStore, kSecondSize), image);
    EXPECT_EQ(Ints({check_upgrade_map(), flash->addref(flash), flash->release(flash), check_upgrade_map(),
                    flash->release(flash), check_upgrade_map()}),
              Ints({1, 0, 0, 1, 0, 0}));
    flash = create();
    sim::clear_journal();
    EXPECT_EQ(write(flash, pattern(2 * kSector), kFirst), 2 * kSector);
    EXPECT_EQ(counts({"/dev/mtd/0 ioctl", "/dev/mtd/0 write", "/dev/mtd/"}), Ints({2, 1, 3}))
        << "the first partition whatever it holds";
    // A short last piece leaves what is behind it.
    for (const auto& [address, partition] :
         {std::pair(kFirst, "/dev/mtd/0"), std::pair(kSecond, "/dev/mtd/1")}) {
        Bytes expected = stored(partition, 2 * kSector);
        const Bytes piece = pattern(kSector + 1, 0x99);
        std::copy(piece.begin(), piece.end(), expected.begin());
        EXPECT_EQ(write(flash, piece, address), static_cast<int>(piece.size()));
        EXPECT_EQ(stored(partition, 2 * kSector), expected);
    }
    EXPECT_EQ(flash->release(flash), 0);
}

TEST(Flash, MapsAddressesAndRefusesTheRest) {
    RawFlash *flash = nullptr, *second = nullptr;
    for (const char* fault : {"/proc/mtd read 2", "/dev/mtd/1 open 1", "/dev/misc/spi1 open 1+"}) {
        load_board("fault " + std::string(fault) + " EIO");
        EXPECT_EQ(createRawFlash(&kHost, &flash), strstr(fault, "spi1") != nullptr ? 0 : -1);
        EXPECT_EQ(seen("err \"open mtd: "), strstr(fault, "mtd/1") != nullptr);
    }
    EXPECT_EQ(createRawFlash(&kHost, &second), -1);
    EXPECT_EQ(info_of(flash), Ints({0, 0x1000000, kSector}));
    Bytes bytes(16);
    const auto read = [&](uint32_t address, uint32_t size) {
        return flash->read(flash, bytes.data(), address, size);
    };
    EXPECT_EQ(Ints({read(kSecond - 16, 16), read(kSecond, 16)}), Ints(2, 16));
    EXPECT_EQ(bytes, stored(kStore, 16));
    EXPECT_EQ(Ints({read(kFpga, 16), write(flash, kFpga, kFpgaSector)}), Ints(2, -1));
    EXPECT_TRUE(count("out \"\\e[1;33m[libmarl] WARN : ##: open fpga ") == 2 && !seen("not open"));
    sim::clear_journal();
    EXPECT_EQ(Ints({flash->erase(flash, kFpga + 2 * kSector, 1), read(kFirst - 1, 1),
                    write(flash, bytes, kSecond + 1), flash->erase(flash, kSecond + 1, 16),
                    write(flash, kFirst, 3 * kSector), write(flash, kFpga - kSector, kSector + 1),
                    write(flash, 0, 1), flash_map(flash, 0), read(kFpga - kSector, kSector + 1),
                    flash->write(flash, bytes.data(), kFpga - kSector, UINT32_MAX - kFpga)}),
              Ints(10, -1));
    EXPECT_TRUE(journal_follows({"out \"addr=0x4020000,MTD_START[0]=0x2000000,MTD_START[3]=0x4020000\\n\"",
                                 "out \"addr=0x1ffffff\\n\"", "out \"address doesn't  align 0x10000\"",
                                 "out \"address doesn't  align 0x10000\""}));
    EXPECT_EQ(counts({"/dev/mtd/", "/dev/misc/spi1"}), Ints(2, 0)) << "nothing is touched";
    sim::clear_journal();
    EXPECT_EQ(Ints({read(0xFFFFFFF8, 16), write(flash, bytes, 0xFFFFFFF8),
                    flash->erase(flash, kSecond, 0xFE000000)}),
              Ints(3, -1));
    EXPECT_EQ(sim::journal(), "") << "a range past 2^32";
    run("fault /dev/mtd/1 ioctl 1 ENODEV\nfault /dev/mtd/1 write 1 short 0\nfault /dev/mtd/2 read 1 EIO");
    EXPECT_EQ(flash->erase(flash, kSecond, 1) + write(flash, kSecond, 9) + read(kThird, 1), -3);
    EXPECT_TRUE(flash->erase(flash, kSecond, kSector + 1) == 0 && seen("flash write: Input/output error"));
    EXPECT_EQ(stored(kStore, 2 * kSector), Bytes(2 * kSector, 0xFF)) << "the last sector wholly";
    EXPECT_EQ(Ints({write(flash, kThird - kSector, 2 * kSector), write(flash, kFpga - kSector, kSector)}),
              Ints({2 * kSector, kSector}))
        << "from partition to partition, and up to the end";
    EXPECT_EQ(flash->release(flash), 0);
    sim::clear_journal();
    EXPECT_EQ(Ints({flash->addref(flash), info_of(flash)[0], read(kFirst, 1), write(flash, bytes, kFirst),
                    flash->erase(flash, kFirst, 1), flash->release(flash)}),
              Ints(6, -1));
    EXPECT_TRUE(journal_follows({"err \"flash_addref: thiz->priv\"", "err \"flash_read: thiz->priv\"",
                                 "err \"flash_write: thiz->priv\"", "err \"flash_erase: thiz->priv\"",
                                 "err \"flash_release: thiz->priv\""}));
    EXPECT_EQ(count("/"), 0U) << "an object that is gone";
}

TEST(Flash, ReleasesTheStorageBusOnce) {
    HWINFO.store_interface = 3;
    load_board("level 10 0\nfile /dev/misc/ataen\n", kRows);
    RawFlash* flash = create();
    EXPECT_TRUE(write(flash, kSecond, kSecondSize + 1) == -1 && !seen("mtd/1 ioctl")) << "past the end";
    for (int i = 0; i < 2; ++i) EXPECT_EQ(write(flash, kSecond, kSector), static_cast<int>(kSector));
    EXPECT_EQ(count("out \"[libmarl] status = 1\\n\""), 1U);
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_TRUE(journal_follows({"/dev/misc/ataen open rw", "sync", "umount", "umount", "sync",
                                 "/dev/misc/ataen ioctl 0x40044a01 0", "/dev/misc/ataen ioctl 0x80044a02",
                                 "out \"[libmarl] ioctl get_ataen1=10\\n\"", "/dev/misc/ataen close",
                                 "out \"[libmarl] idestatus =1\\n\"", "/dev/misc/rtc write 3: 1b 57 13"}));
    flash = create();
    sim::clear_journal();
    EXPECT_EQ(Ints({flash->skip_cmos_mark(flash), flash->release(flash)}), Ints(2, 0));
    EXPECT_EQ(count("/dev/misc/rtc"), 0U);
}

TEST(UpgradeFlag, IsLoweredAtTheThirdTry) {
    load("");
    EXPECT_EQ(Ints({set_upgrade_map(), check_upgrade_map()}), Ints({0, 1}));
    std::filesystem::remove(path_of("/tmp/upgrade_ing"));
    EXPECT_EQ(Ints({check_upgrade_map(), clear_upgrade_map(), check_upgrade_map()}), Ints({1, -1, 0}));
    for (const bool stays : {false, true}) {
        load_board("fault /tmp/upgrade_ing write 3.." + std::to_string(stays ? 5 : 4) + " ENOSPC");
        RawFlash* flash = create();
        EXPECT_EQ(Ints({write(flash, kFirst, kSector), flash->release(flash), check_upgrade_map(),
                        flash_release(create()), check_upgrade_map()}),
                  Ints({kSector, stays ? -1 : 0, stays, 0, 0}));
        EXPECT_EQ(count("err \"open /tmp/upgrade_ing failed\\n\""), stays ? 3U : 2U);
        EXPECT_NEAR(sim::now(), 0.02, 0.0001);
    }
    RawFlash* flash = create();
    EXPECT_EQ(write(flash, kFirst, kSector), static_cast<int>(kSector));
    std::filesystem::remove(path_of("/tmp/upgrade_ing"));
    EXPECT_EQ(flash->release(flash), 0) << "nobody else sees a flag without a name";
}

TEST(FpgaFlash, TakesItsImageSectorBySectorAndTheFirstLast) {
    load_board();
    Bytes image = pattern(kFpgaImage);
    fill(kFpgaStore, image);
    image[kFpgaSector * 3] ^= 1;
    RawFlash* flash = create();
    EXPECT_GT(write(flash, image, kFpga), 0);
    EXPECT_EQ(counts({kErase + " 0 4096", kErase, "/dev/misc/spi1 write"}), Ints({2, 3, 2}))
        << "the first sector, at the start and at the end";
    EXPECT_TRUE(journal_follows(
        {"/dev/misc/spi1 open rw", "/dev/misc/spi1 ioctl 0xc004650c", "/dev/misc/spi1 ioctl 0xc0046501",
         "/dev/misc/spi1 ioctl 0xc004650b", "out \"[libmarl] ---------upgrade fpga flash---------\\n\"",
         "out \"[libmarl] erasing first sector......\\n\"", "out \"<fpga flash write>addr = 0x3000\\n\"",
         "out \"[libmarl] writing first sector......\\n\""}));
    EXPECT_EQ(stored(kFpgaStore, kFpgaImage), image);
    Bytes back(2 * kFpgaSector);
    EXPECT_EQ(flash->read(flash, back.data(), kFpga + 3 * kFpgaSector, 2 * kFpgaSector),
              2 * int{kFpgaSector});
    EXPECT_TRUE(std::equal(back.begin(), back.end(), image.begin() + 3 * kFpgaSector));
    EXPECT_EQ(Ints({write(flash, back, kFpga + 1), flash->write(flash, image.data(), kFpga, kFpgaSector - 1),
                    flash->release(flash)}),
              Ints({-1, -1, 0}));
    EXPECT_TRUE(journal_follows({"/dev/misc/spi1 ioctl 0xc0046502", "/dev/misc/spi1 close"}));
    EXPECT_TRUE(seen("): address doesn't  align 0x1000\\e[m") && !seen("Program  failed"));
}

TEST(FpgaFlash, IsOpenedOnKnownDevicesOnly) {
    for (const int id : {480, 481, 549, 550, 580, 581, 649, 650}) {
        load(kFpgaBoard + "fpga id " + std::to_string(id));
        EXPECT_EQ(fpga_flash_open(), id % 100 == 81 || id % 100 == 49 ? 0 : -1) << id;
        fpga_flash_close();
        EXPECT_EQ(count("/dev/misc/spi1 open rw"), count("/dev/misc/spi1 close"));
        uint8_t bytes[kFpgaSector];
        EXPECT_EQ(fpga_flash_read(bytes, kFpgaSector, 0) + fpga_flash_write(bytes, kFpgaSector, 0), -2);
    }
}

TEST(FpgaFlash, TakesWholeSectorsOnly) {
    load_board();
    ASSERT_EQ(fpga_flash_open(), 0);
    const Bytes bytes(2 * kFpgaSector);
    EXPECT_EQ(
        Ints({fpga_flash_write(nullptr, kFpgaSector, 0), fpga_flash_write(bytes.data(), kFpgaSector + 1, 0),
              fpga_flash_write(bytes.data(), kFpgaSector, 0 - kFpgaSector),
              fpga_flash_write(bytes.data(), 0, 0), fpga_flash_read(nullptr, kFpgaSector, 0)}),
        Ints(5, -1));
    EXPECT_EQ(counts({kErase, "/dev/misc/spi1 write"}), Ints(2, 0));
    run("fault /dev/misc/spi1 ioctl:0xc0046502 1 EIO");
    fpga_flash_close();
    EXPECT_TRUE(seen("end  fpga_flash Program  failed\\n"));
}

int write_part(uint32_t from, uint32_t to) {
    return fpga_flash_write(Bytes(kFpgaImage, 0x5A).data(), to - from, from);
}

TEST(FpgaImage, RunsOnlyWhenNothingOfItIsMissing) {
    for (const std::string fault : {"read 2", "write 2", "ioctl:0xc0046508 2", "lseek 3"}) {
        SCOPED_TRACE(fault);
        load_board();
        ASSERT_EQ(fpga_flash_open(), 0);
        EXPECT_EQ(write_part(0, kFpgaSector), 0) << "the first sector alone";
        run("fault /dev/misc/spi1 " + fault + " EIO");
        EXPECT_EQ(Ints({write_part(0x1000, 0x4000), write_part(0x4000, kFpgaImage)}), Ints(2, -1));
        EXPECT_EQ(stored(kFpgaStore, kFpgaSector), Bytes(kFpgaSector, 0xFF));
        EXPECT_EQ(Ints({write_part(0, 0x1000), write_part(0x1000, kFpgaImage)}), Ints({0, kFpgaSector}));
        EXPECT_EQ(stored(kFpgaStore, kFpgaImage), Bytes(kFpgaImage, 0x5A)) << "from the start";
        fpga_flash_close();
    }
}

TEST(FpgaImage, GoesWithAnOpenThatFails) {
    load_board();
    EXPECT_EQ(Ints({fpga_flash_open(), write_part(0, 0x4000), fpga_flash_open(), write_part(0x4000, 0x5000)}),
              Ints({0, kFpgaSector, 0, kFpgaSector}))
        << "opened twice, the image goes on";
    for (const char* fault : {"c not support FPGA upgrade", "b open Protect failed", "1 start  fpga"}) {
        EXPECT_EQ(write_part(0, 0x5000), static_cast<int>(kFpgaSector));
        run("fault /dev/misc/spi1 ioctl:0xc004650" + std::string(fault, 1) + " 1 EIO");
        EXPECT_EQ(fpga_flash_open(), -1);
        EXPECT_EQ(*fault == 'b' ? write_part(0x5000, 0x6000) : -1, -1);
        EXPECT_TRUE(seen(fault + 2));
        EXPECT_EQ(Ints({fpga_flash_open(), write_part(0x5000, kFpgaImage)}), Ints({0, -1}));
    }
    EXPECT_EQ(write_part(0, kFpgaImage), static_cast<int>(kFpgaSector));
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
    EXPECT_EQ(
        Ints({write(flash, kFpga, kFpgaSector), write_part(kFpgaSector, kFpgaImage), flash->release(flash)}),
        Ints({0, kFpgaSector, -1}))
        << "whole, but the mark cannot be made";
    EXPECT_TRUE(seen("|flash_write|") && seen("|flash_release|"));
}

int upgrade(const Bytes& bytes) {
    return dm365_upgrade_write(dm365_spi_open(), bytes.data(), static_cast<uint32_t>(bytes.size()), 0x2000000,
                               0x2468);
}

// What an upgrade with these bytes returns, and the seconds that it takes.
void expect_upgrade(const Bytes& bytes, int result, double seconds) {
    const double before = sim::now();
    EXPECT_EQ(upgrade(bytes), result);
    EXPECT_NEAR(sim::now() - before, seconds, 0.001);
}

TEST(CoprocessorUpgrade, ShipsChecksummedFrames) {
    load("");
    EXPECT_EQ(Ints({dm365_spi_open(), fpga_flash_open()}), Ints(2, -1)) << "not on this board";
    load(kLink + "fault /dev/misc/spi0 ioctl:0x40047305 1 EIO");
    EXPECT_EQ(Ints({dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x1357),
                    dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x1111),
                    dm365_upgrade_write(dm365_spi_open(), nullptr, 0, 0, 0x2468),
                    dm365_upgrade_write(0, Bytes(1).data(), 1, 0, 0x2468)}),
              Ints({0, -1, -1, -1}));
    expect_upgrade(pattern(1000), 1000, 0.08 + 0.02);  // three probes, and one look at the acknowledgement
    EXPECT_EQ(upgrade(pattern(70000)), 65536) << "one frame a call";
    EXPECT_EQ(upgrade(Bytes{'u', 'p'}), 2) << "shorter than the end mark";
    EXPECT_TRUE(journal_follows(
        {"err \"CMD WRONG !\\n\"", "err \"fd not open\\n\"", "/dev/misc/spi0 ioctl 0x40047305",
         "out \"=========>:  365 spi driver", "out \"[DEBUG]=======>: Libmarl:  transmation alive",
         "/dev/misc/spi0 ioctl 0x40047301 9320", "/dev/misc/spi0 write 1016: 00 00 00 02 e8 03 00 00",
         "/dev/misc/spi0 ioctl 0x80047304", "/dev/misc/spi0 write 65552", "/dev/misc/spi0 write 18"}));
    EXPECT_EQ(count("/dev/misc/spi0 ioctl 0x40047305"), 3U) << "the link is probed once";
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

// The link is asked again, a frame offered again while the link answers, and resent four times.
TEST(CoprocessorUpgrade, SurvivesAFaultAtEveryCall) {
    const std::tuple<std::string, int, size_t, double, std::string> cases[] = {
        {"write 9 EIO\nspi0 alive 0", -1, 0, 10, ""},  // later calls do not probe
        {"ioctl:0x80047304 1 EIO", 100, 1, 0.06, ""},
        {"write 1 EIO", 100, 2, 0.06, "err \"[libmarl]: ERROR, transmit upgrade-data failed\\n\""},
        {"write 1..5 short 0", 100, 1, 0.26, ""},
        {"write 1..6 EIO", -1, 6, 0.24, ""},
        {"write 1 EIO\nspi0 alive 0", -1, 1, 2.0,
         "out \"[libmarl]: ERROR, Probe SPI between 6441 and 365 failed, upgrade failed\\n\""},
        {"write 9 EIO\nspi0 acks 7788 7788 7788 7788 55aa", 100, 5, 0.10,
         "out \"dm365flash: resend updata time = 4\\n\""},
        {"write 9 EIO\nspi0 acks 7788 7788 7788 7788 7788 55aa", -1, 5, 0.10,
         "out \"dm365flash: resend updata failed\\n\""},
    };
    for (const auto& [fault, result, writes, seconds, message] : cases) {
        SCOPED_TRACE(fault);
        load(kLink + "fault /dev/misc/spi0 " + fault);
        expect_upgrade(pattern(100), result, seconds);
        EXPECT_TRUE(journal_follows({message}));
        EXPECT_EQ(count("/dev/misc/spi0 write 116"), writes);
    }
    uint32_t word = 7;
    dm365_spi_probe(-1, 3, &word), dm365_wait_ack(-1, 3, &word, 10);
    EXPECT_TRUE(word == 7 && count("err \"@@: spi0 device is not open\\n\"") == 2);
}

TEST(CoprocessorUpgrade, IsWhatTheFlashObjectDoesOnItsBoards) {
    strcpy(HWINFO.product_model, "IPC-KL7");
    load_board(kLink + "fault /dev/misc/spi0 ioctl:0x40047301 2 EIO\nfile /mnt/mtd/dm365_version old\n");
    RawFlash* flash = create(kCoprocessor);
    EXPECT_FALSE(std::filesystem::exists(path_of("/mnt/mtd/dm365_version")));
    EXPECT_EQ(info_of(flash), Ints({0, 0x800000, kSector / 2}));
    Bytes bytes(4);
    EXPECT_EQ(Ints({write(flash, 0x1234, 100), write(flash, 100, 100), write(flash, UINT32_MAX, 100),
                    flash_map(flash, kFirst), flash->read(flash, bytes.data(), kSecond, 4),
                    flash->erase(flash, kSecond, kSector)}),
              Ints({100, -1, 100, -1, -1, -1}))
        << "the second without the upgrade mode";
    EXPECT_TRUE(journal_follows({"/dev/misc/spi0 write 116: 34 12 00 00", "/dev/misc/spi0 write 116: ff ff",
                                 "out \"dm6446 spi driver not support !\\n\""}));
    EXPECT_EQ(counts({"/dev/misc/spi0 write", "/dev/mtd/"}), Ints({2, 0}));
    EXPECT_EQ(flash->release(flash), 0);
    EXPECT_EQ(info_of(create()), Ints({0, 0x1000000, kSector}))
        << "the next object is the host's flash again";
}

}  // namespace
