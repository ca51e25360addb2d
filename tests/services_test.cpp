// Watchdog services and CMOS bytes in a client's process.
#include <libmarl.h>

#include <cstring>

#include "helpers/board.h"

namespace {

using namespace board;

TEST(Watchdog, IsForBoardsThatStartAlone) {
    load("env a=1");
    EXPECT_EQ(Ints({get_appauto(), wdt_keepalive(), wdt_set_period(1000)}), Ints({0, -1, -1}));
    EXPECT_EQ(count("/dev/misc/wdt"), 0U);
    EXPECT_EQ(Ints({__set_armboot_para("appauto", "1"), get_appauto(), __set_armboot_para("appauto", "0"),
                    get_appauto()}),
              Ints({0, 1, 0, 1}))
        << "only an absent switch is looked up again";
    run("missing /dev/misc/wdt");
    EXPECT_EQ(wdt_keepalive(), -1);
    EXPECT_TRUE(journal_follows({"err \"open /dev/misc/wdt failed\\n\""}));
    run("present /dev/misc/wdt");
    EXPECT_EQ(Ints({wdt_set_period(7000), wdt_keepalive()}), Ints(2, 0));
    EXPECT_TRUE(
        journal_follows({"/dev/misc/wdt ioctl 0x5 7000", "/dev/misc/wdt ioctl 0x7", "/dev/misc/wdt ioctl 0x4",
                         "/dev/misc/wdt open rw", "/dev/misc/wdt ioctl 0x4"}));
}

TEST(Watchdog, ThatIsSwitchedOffStaysOff) {
    load("env appauto=0");
    EXPECT_EQ(Ints({get_appauto(), __set_armboot_para("appauto", "1"), get_appauto()}), Ints(3, 0));
}

TEST(Cmos, TransfersHaveLimits) {
    load("");
    uint8_t bytes[MARL_CMOS_READ_MAX] = {};
    uint8_t many[MARL_CMOS_WRITE_MAX + 1] = {};
    for (const uint32_t len : {0U, 128U, UINT32_MAX}) EXPECT_EQ(writeCMOS(0, many, len), -1) << len;
    for (const uint32_t len : {0U, 65U, UINT32_MAX}) EXPECT_EQ(readCMOS(0, many, len), -1) << len;
    EXPECT_EQ(count("/dev/misc/rtc"), 0U);
    EXPECT_EQ(writeCMOS(0, many, MARL_CMOS_WRITE_MAX), MARL_CMOS_WRITE_MAX + 1);
    EXPECT_EQ(readCMOS(0, bytes, MARL_CMOS_READ_MAX), MARL_CMOS_READ_MAX);
    uint8_t byte = 77;
    run("fault /dev/misc/rtc read 1 EIO");
    EXPECT_LT(readCMOS(1, &byte, 1), 0);
    EXPECT_EQ(byte, 77) << "a failed read leaves the caller's bytes alone";
}

TEST(Cmos, IsNotThereOnOneModel) {
    load("missing /dev/misc/rtc");
    uint8_t byte = 9;
    EXPECT_EQ(Ints({openCMOS("/dev/misc/rtc"), readCMOS(42, &byte, 1), writeCMOS(42, &byte, 1), byte}),
              Ints({-1, -1, -1, 9}));
    strcpy(HWINFO.product_model, "QZ-CA-KZ9-N");
    sim::clear_journal();
    EXPECT_EQ(Ints({readCMOS(42, &byte, 1), byte, writeCMOS(42, &byte, 1), NetConfigBeenReset()}),
              Ints(4, 0));
    EXPECT_EQ(sim::journal(), "");
    EXPECT_EQ(SaveEthAttr("eth0", NET_ATTR_IP, "10.0.0.1"), 0);
}

}  // namespace
