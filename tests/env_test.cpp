// The boot environment: look-ups and sets against the image in flash.
#include <libmarl/env.h>

#include "helpers/board.h"

namespace {

using namespace board;
using namespace std::string_literals;

constexpr size_t kDataSize = 0x20000 - 4;

// A board whose flash holds `data` behind a checksum of zeros, filled up with zeros.
void board_with_list(const std::string& data) {
    load("");
    write_file("/dev/mtd/1", std::string(4, '\0') + data + std::string(kDataSize - data.size(), '\0'));
}

std::string flash(size_t size = kDataSize) { return read_file("/dev/mtd/1").substr(4, size); }

std::string look_up(const char* key, uint32_t size = 64) {
    char value[64];
    return get_armboot_para(key, value, size) == 0 ? value : "(absent)";
}

TEST(Environment, SetReplacesAndSaves) {
    // The list ends on the first page; behind are pages of one byte everywhere, and others that only begin so.
    std::string image = std::string(4089, 'f') + "\0\0"s + std::string(kDataSize - 4091, '\xFF');
    image.replace(0x3FFC, 0x1000, 0x1000, 'x').replace(0x5FFC, 0x1000, 0x1000, '\0');
    image[0x2FFB] = image[0x6FFB] = 1;
    board_with_list(image);
    for (const std::string value : {"longer", "1"}) {
        sim::clear_journal();
        ASSERT_EQ(__set_armboot_para("a", value.c_str()), 0);
        EXPECT_EQ(flash().substr(4090, value.size() + 4), "a=" + value + "\0\0"s);
        EXPECT_EQ(flash().substr(4160), image.substr(4160)) << "the rest stays as it was";
        EXPECT_TRUE(journal_follows({"out \"[libmarl] Save environment to flash ,Please wait ..\\n\"",
                                     "out \"[libmarl] Note!! don't power off\\n\\n\"",
                                     "/dev/mtd/1 ioctl 0x40084d02", "/dev/mtd/1 seek 0",
                                     "/dev/mtd/1 write 131072", "out \"[libmarl] Save Ok\\n\\n\""}));
    }
    EXPECT_TRUE(__set_armboot_para("b", "2") == 0 && flash().substr(4090, 9) == "a=1\0b=2\0\0"s);
}

TEST(Environment, OverflowLosesTheOldValueInMemoryOnly) {
    std::string list = "victim=1\0"s;
    list += "filler=" + std::string(kDataSize - list.size() - 7 - 12, 'x') + "\0\0"s;
    board_with_list(list);
    ASSERT_EQ(__set_armboot_para("victim", "far too long"), 0);
    EXPECT_EQ(look_up("victim"), "(absent)");
    EXPECT_EQ(flash(8), "victim=1");
    EXPECT_TRUE(
        journal_follows({"out \"\\e[1;33m[libmarl] WARN (src/misc/env|do_setenv|285): ## Error: environment "
                         "overflow, \\\"victim\\\" deleted\\n\\e[m\"",
                         "out \"\\e[0;32;31m[libmarl] ERROR (src/misc/env|__set_armboot_para|410): set "
                         "environmeent to flash fail\\n\\e[m\""}));
    ASSERT_EQ(__set_armboot_para("v", "0123456789abcdef"), 0) << "what is free is room, to the last byte";
    EXPECT_EQ(look_up("v"), "0123456789abcdef");
    run("fault /dev/mtd/1 ioctl 1 EIO\nfault /dev/mtd/1 write 1 EIO");
    EXPECT_EQ(__set_armboot_para("v", "1") + __set_armboot_para("v", "2"), 0) << "not erased, not written";
    EXPECT_EQ(count("out \"\\e[0;32;31m[libmarl] ERROR (src/misc/env|__set_armboot_para|420): save "), 2U);
}

TEST(Environment, CameraSetterTellsTheVideoFrontEndFirst) {
    EXPECT_EQ(Ints({env_init(), __set_armboot_para("a", "1")}), Ints({-1, 0})) << "no flash yet";
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
    EXPECT_TRUE(set_armboot_para_kv("k=v") == 0 && seen("out \"[libmarl] v\\n\""));
}

}  // namespace
