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
        {"a", "22", "a=22\0\0"s},
        {"ab", "2", "a=22\0ab=2\0\0"s},
        {"ab", "3", "a=22\0ab=3\0\0"s},
        {"a", "", "ab=3\0a=\0\0"s},
        {"c", "4", "ab=3\0a=\0c=4\0\0"s},
        {"a", "longer", "ab=3\0c=4\0a=longer\0\0"s},
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

TEST(Environment, RefusesWhatCannotBeSet) {
    board_with_list("a=1\0\0"s);
    ASSERT_EQ(look_up("a"), "1");
    sim::clear_journal();
    const std::string name24(24, 'n'), value256(256, 'v');
    EXPECT_EQ(Ints({__set_armboot_para(name24.c_str(), "1"), __set_armboot_para("n", value256.c_str()),
                    __set_armboot_para("n=", "1"), __set_armboot_para("", "1"),
                    set_armboot_para_kv("no separator"), set_armboot_para_kv((name24 + "=1").c_str())}),
              Ints(6, -1));
    EXPECT_EQ(sim::journal(), "");
    EXPECT_EQ(
        Ints({__set_armboot_para(name24.c_str() + 1, value256.c_str() + 1), set_armboot_para_kv("k=v=w")}),
        Ints(2, 0));
    EXPECT_EQ(look_up("k"), "v=w");
}

TEST(Environment, AFailureIsReportedAndTriedAgain) {
    const std::string read_error = "err \"read mtd: Input/output error\\n\"";
    const std::string prefix = "out \"[libmarl] [libmarl] \"";
    const std::pair<std::string, Strings> loads[] = {
        {"envimage missing", {prefix, "err \"open mtd: No such file or directory\\n\""}},
        {"envimage short:4096", {prefix, read_error, "/dev/mtd/1 close"}},
        {"fault /dev/mtd/1 read 1+ EIO", {read_error, "/dev/mtd/1 close"}},
    };
    for (const auto& [script, messages] : loads) {
        load("env a=1\n" + script);
        for (int i = 0; i < 2; ++i) {
            sim::clear_journal();
            EXPECT_EQ(look_up("a"), "(absent)");
            EXPECT_TRUE(journal_follows(messages));
        }
        EXPECT_EQ(__set_armboot_para("a", "2"), 0);
        EXPECT_EQ(count("/dev/mtd/1 ioctl"), 0U);
    }
    // What is not saved is kept in memory. A load and a save that are interrupted are no failure.
    const std::pair<std::string, std::string> saves[] = {
        {"ioctl 1 EIO", "mem erase: Input/output error"},
        {"write 1 ENOSPC", "write mtd: No space left on device"},
        {"lseek 1 EINVAL", "write mtd: Invalid argument"}};
    load("env a=1\nfault /dev/mtd/1 read 1 EINTR\nfault /dev/mtd/1 read 2 short 100");
    for (const auto& [fault, message] : saves) {
        run("fault /dev/mtd/1 " + fault);
        EXPECT_EQ(__set_armboot_para("a", fault.c_str()), 0);
        EXPECT_EQ(look_up("a"), fault);
        EXPECT_TRUE(
            journal_follows({prefix, "err \"" + message + "\\n\"",
                             "out \"\\e[0;32;31m[libmarl] ERROR (src/misc/env|__set_armboot_para|420): save "
                             "environmeent to flash fail\\n\\e[m\""}));
        EXPECT_FALSE(seen("Save Ok"));
    }
    run("fault /dev/mtd/1 write 1 short 5\nfault /dev/mtd/1 write 2 EINTR");
    EXPECT_EQ(__set_armboot_para("b", "2"), 0);
    EXPECT_EQ(flash(22), "a=lseek 1 EINVAL\0b=2\0\0"s);
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
