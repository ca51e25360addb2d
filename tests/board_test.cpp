// What the board's services answer when a device gives nothing, an object is gone, or a count steps back.
#include <libmarl.h>

#include <cstring>
#include <functional>
#include <string>

#include "helpers/scenario.h"
#include "sim.h"

namespace {

using scenario::journal_follows;

TEST(Levels, AReadOfNoByteIsNoLevel) {
    sim::load(
        "level 7 1\nexpander 0xff\nfault /dev/misc/gpio read 1 short 0\nfault /dev/misc/gio_expd_in read 1 "
        "short 0");
    uint8_t level = 9;
    EXPECT_LT(gpio_get_bit(7), 0);
    EXPECT_LT(gio_expander_read(3, &level), 0);
    EXPECT_EQ(level, 9);
    EXPECT_EQ(gpio_get_bit(7), 1);
    EXPECT_EQ(gio_expander_read(3, &level), 1);
}

struct LateCall {
    const char* what;
    std::function<int(GPIO*)> call;
};

TEST(LateUse, OfTheGpioObjectIsRefused) {
    const LateCall calls[] = {
        {"gpio_addref", [](GPIO* late) { return late->addref(late); }},
        {"gpio_release", [](GPIO* late) { return late->release(late); }},
        {"gpio_open", [](GPIO* late) { return late->open(late); }},
        {"gpio_close", [](GPIO* late) { return late->close(late); }},
        {"gpio_readbit", [](GPIO*) { return gpio_get_bit(1); }},
        {"gpio_writebit", [](GPIO*) { return gpio_set_bit(1, 1); }},
        {"gpio_interrupt_enable", [](GPIO* late) { return late->interrupt_enable(late, 1, 1); }},
        {"gpio_interrupt_disable", [](GPIO* late) { return gpio_interrupt_disable(late, 1); }},
    };
    sim::load("");
    GPIO copy = *pg_gpio;
    ASSERT_EQ(pg_gpio->release(pg_gpio), 0);
    for (GPIO* late : {pg_gpio, &copy}) {
        for (const LateCall& c : calls) {
            sim::clear_journal();
            EXPECT_EQ(c.call(late), -1) << c.what;
            EXPECT_TRUE(journal_follows({std::string("err \"") + c.what + ": thiz->priv\""}));
        }
    }
    sim::run("missing /dev/misc/gpio");
    GPIO* made = pg_gpio;
    EXPECT_EQ(createGPIO(&made), -1);
    EXPECT_EQ(gpio_get_bit(1), -1);
    sim::run("present /dev/misc/gpio");
    EXPECT_EQ(createGPIO(&pg_gpio), 0);
    EXPECT_EQ(gpio_get_bit(1), 1);
}

TEST(LateUse, OfTheFlashObjectIsRefused) {
    sim::load(
        "file /proc/mtd dev:    size   erasesize  name\nfile /proc/mtd mtd0: 00040000 00010000 "
        "\"boot\"\nfile /dev/mtd/0 x");
    const int32_t host = 0;
    RawFlash* flash = nullptr;
    ASSERT_EQ(createRawFlash(&host, &flash), 0);
    ASSERT_EQ(flash->release(flash), 0);
    sim::clear_journal();
    uint8_t byte = 0;
    RawFlashInfo info;
    EXPECT_EQ(flash->addref(flash), -1);
    EXPECT_EQ(flash->getinfo(flash, &info), -1);
    EXPECT_EQ(flash->read(flash, &byte, 0x2000000, 1), -1);
    EXPECT_EQ(flash->write(flash, &byte, 0x2000000, 1), -1);
    EXPECT_EQ(flash->erase(flash, 0x2000000, 1), -1);
    EXPECT_EQ(flash->release(flash), -1);
    EXPECT_TRUE(journal_follows({"err \"flash_addref: thiz->priv\"", "err \"flash_read: thiz->priv\"",
                                 "err \"flash_write: thiz->priv\"", "err \"flash_erase: thiz->priv\"",
                                 "err \"flash_release: thiz->priv\""}));
    EXPECT_EQ(scenario::Journal(sim::journal()).count("/"), 0U) << "nothing was touched";
}

struct Interval {
    const char* ticks;  // user, nice, system, idle
    uint32_t usage;
};

TEST(ProcessorUsage, IdleTicksThatStepBackAreNoIdleTime) {
    constexpr Interval kIntervals[] = {
        {"100 0 100 800", 20}, {"150 0 150 798", 100},      {"150 0 150 898", 0},
        {"200 0 150 948", 50}, {"200 0 150 4294967290", 0}, {"205 0 150 4294967294", 56},
        {"210 0 150 4", 46},  // 32 bits of an older kernel
    };
    sim::load("");
    for (const Interval& each : kIntervals) {
        sim::run((std::string("file! /proc/stat cpu  ") + each.ticks + "\\n").c_str());
        EXPECT_EQ(get_cpu_usage(), each.usage) << each.ticks;
    }
}

TEST(Summary, TheDeviceIdIsComparedBeforeItIsCut) {
    sim::load("env ID=000000000000000000");
    char mac[18] = "unset";
    EXPECT_EQ(get_device_id(mac, sizeof mac), -1) << "no network, so no MAC address: " << mac;
    EXPECT_EQ(__set_armboot_para("ID", "0000000000000000001"), 0);
    EXPECT_EQ(get_device_id(mac, sizeof mac), 0);
    EXPECT_STREQ(mac, "00000000000000000") << "another identifier, cut";
}

TEST(Summary, TheCoprocessorIsClosedBeforeTheFpgaIsAsked) {
    sim::load("file /dev/dm6480\nfile /dev/ad9979_dev");
    strcpy(HWINFO.product_model, "TRV-A2-I");
    HWINFO.dsp_chip = 6;
    SubModuleInfo modules[2] = {};
    int count = 0;
    sim::clear_journal();
    EXPECT_EQ(getSubModules(modules, &count), 0);
    EXPECT_TRUE(journal_follows(
        {"/dev/dm6480 open r", "/dev/dm6480 close", "/dev/ad9979_dev open r", "/dev/ad9979_dev close"}));
}

TEST(ProcFields, AFileThatBreaksOffHasNoField) {
    struct Broken {
        const char* fault;
        int result;
    };
    constexpr Broken kBroken[] = {
        {"read 1 EIO", -1}, {"read 2 EIO", -1}, {"read 1 short 0", -1}, {"open 1 EMFILE", -2}};
    for (const Broken& each : kBroken) {
        sim::load((std::string("file! /proc/list first:1\\nkey:12345\\n\nfault /proc/list ") + each.fault +
                   "\nfault /proc/list read 1 short 15")
                      .c_str());
        char word[MARL_PROC_TOKEN_SIZE] = "left";
        EXPECT_EQ(get_proc_field("/proc/list", "key", ':', word, nullptr), each.result) << each.fault;
        EXPECT_STREQ(word, "left") << each.fault;
        EXPECT_EQ(get_proc_field("/proc/list", "key", ':', word, nullptr), 0) << each.fault;
        EXPECT_STREQ(word, "12345");
    }
}

}  // namespace
