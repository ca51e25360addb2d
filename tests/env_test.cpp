// The boot environment: look-ups and sets against the image in flash.
#include <libmarl/env.h>

#include <cstring>

#include "helpers/board.h"

namespace {

using namespace board;
using namespace std::string_literals;

constexpr size_t kDataSize = 0x20000 - 4;

// A board whose flash holds `data` behind a checksum of zeros, filled up with `fill`.
void board_with_list(std::string data, char fill = '\0') {
    load("");
    data.resize(kDataSize, fill);
    write_file("/dev/mtd/1", std::string(4, '\0') + data);
}

std::string flash(size_t size = kDataSize) { return read_file("/dev/mtd/1").substr(4, size); }

uint32_t bitwise_crc32(std::string_view data) {
    uint32_t crc = ~0U;
    for (const char byte : data) {
        crc ^= static_cast<uint8_t>(byte);
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320U & (0U - (crc & 1U)));
    }
    return ~crc;
}

std::string look_up(const char* key, uint32_t size = 64) {
    char value[64];
    return get_armboot_para(key, value, size) == 0 ? value : "(absent)";
}

TEST(Environment, SetReplacesAndSavesWithItsChecksum) {
    const std::tuple<const char*, const char*, std::string> sets[] = {
        {"a", "1", "a=1\0\0"s},
        {"ab", "2", "a=1\0ab=2\0\0"s},
        {"a", "longer", "ab=2\0a=longer\0\0"s},
    };
    board_with_list("\0"s, '\xFF');
    for (const auto& [name, value, list] : sets) {
        SCOPED_TRACE(list);
        sim::clear_journal();
        ASSERT_EQ(__set_armboot_para(name, value), 0);
        EXPECT_EQ(look_up(name), value);
        EXPECT_EQ(flash(list.size()), list);
        EXPECT_EQ(flash().substr(64), std::string(kDataSize - 64, '\xFF')) << "the rest stays as it was";
        uint32_t stored = 0;
        memcpy(&stored, read_file("/dev/mtd/1").data(), sizeof stored);
        EXPECT_EQ(stored, bitwise_crc32(flash(0x4000 - 4)));
        EXPECT_TRUE(journal_follows({"out \"[libmarl] Save environment to flash ,Please wait ..\\n\"",
                                     "out \"[libmarl] Note!! don't power off\\n\\n\"",
                                     "/dev/mtd/1 ioctl 0x40084d02", "/dev/mtd/1 seek 0",
                                     "/dev/mtd/1 write 131072", "out \"[libmarl] Save Ok\\n\\n\""}));
    }
}

TEST(Environment, OverflowLosesTheOldValueInMemoryOnly) {
    std::string list = "victim=1\0"s;
    list += "filler=" + std::string(kDataSize - list.size() - 7 - 12, 'x') + "\0\0"s;
    board_with_list(list);
    ASSERT_EQ(__set_armboot_para("victim", "far too long to go into the rest"), 0);
    EXPECT_EQ(look_up("victim"), "(absent)");
    EXPECT_EQ(flash(8), "victim=1");
    EXPECT_TRUE(
        journal_follows({"out \"\\e[1;33m[libmarl] WARN (src/misc/env|do_setenv|285): ## Error: environment "
                         "overflow, \\\"victim\\\" deleted\\n\\e[m\"",
                         "out \"\\e[0;32;31m[libmarl] ERROR (src/misc/env|__set_armboot_para|410): set "
                         "environmeent to flash fail\\n\\e[m\""}));
    ASSERT_EQ(__set_armboot_para("v", "0123456789abcdef"), 0) << "what is free is room, to the last byte";
    EXPECT_EQ(look_up("v"), "0123456789abcdef");
}

TEST(Environment, CameraSetterTellsTheVideoFrontEndFirst) {
    board_with_list("a=1\0\0"s);
    EXPECT_EQ(set_armboot_para("camera", "camera=Hitachi"), -1) << "no video front end";
    EXPECT_EQ(look_up("camera"), "(absent)");
    sim::run("present /dev/davinci_vpfe");
    EXPECT_EQ(set_armboot_para("camera", "camera=Qorzo,camera=Hitachi"), 0);
    EXPECT_TRUE(
        journal_follows({"/dev/davinci_vpfe ioctl 0x80045609 0", "out \"[libmarl] ----qorzo----\\n\"",
                         "/dev/davinci_vpfe ioctl 0x80045609 1", "out \"[libmarl] ----HITACHI----\\n\"",
                         "/dev/davinci_vpfe close", "/dev/mtd/1 ioctl"}));
    EXPECT_EQ(look_up("camera"), "camera=Qorzo,camera=Hitachi");
}

}  // namespace
