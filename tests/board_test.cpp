// The board's own: GPIO object and expander, the modem's power switch behind them, and what is counted
// and summed up.
#include "helpers/board.h"

#include <libmarl.h>

#include <cstring>

namespace {

using namespace board;

TEST(GpioObject, OneAtATimeUntilItsLastReferenceGoes) {
    GPIO* other = pg_gpio;
    EXPECT_EQ(Ints({createGPIO(&other), other == pg_gpio, pg_gpio->addref(pg_gpio), pg_gpio->release(pg_gpio),
                    createGPIO(&other), pg_gpio->release(pg_gpio), createGPIO(nullptr)}),
              Ints({-1, 1, 0, 0, -1, 0, -1}));
    EXPECT_TRUE(journal_follows(
        {"out \"\\e[0;32;31m[libmarl] ERROR (src/misc/gpio|createGPIO|258): Error:OBJ is created\\n\\e[m\"",
         "out \"\\e[0;32;31m[libmarl] ERROR (src/misc/gpio|createGPIO|264): Obiect is NULL"}));
}

TEST(GpioObject, LinesGoToTheDeviceAndNothingElseDoes) {
    load("level 7 0\nlevel 8 1");
    EXPECT_EQ(Ints({gpio_get_bit(7), gpio_get_bit(8), gpio_set_bit(71, 1),
                    pg_gpio->interrupt_enable(pg_gpio, 5, 3), pg_gpio->interrupt_disable(pg_gpio, 5)}),
              Ints({0, 1, 2, 0, 0}));
    EXPECT_TRUE(journal_follows({"/dev/misc/gpio write 2: 47 01", "/dev/misc/gpio ioctl 0x1: 05 03 00",
                                 "/dev/misc/gpio ioctl 0x1: 05 00 00"}));
    sim::clear_journal();
    EXPECT_EQ(Ints({gpio_get_bit(72), gpio_set_bit(72, 0), gpio_set_bit(3, 2),
                    pg_gpio->interrupt_enable(pg_gpio, 72, 1), pg_gpio->interrupt_enable(pg_gpio, 3, 4),
                    pg_gpio->interrupt_disable(pg_gpio, 72)}),
              Ints(6, -1));
    EXPECT_EQ(sim::journal(), "");
    for (const std::string fault : {"EIO", "short 0"}) {
        run("fault /dev/misc/gpio read 1 " + fault);
        EXPECT_EQ(Ints({gpio_get_bit(8), gpio_get_bit(8)}), Ints({-1, 1})) << "no byte is no level";
    }
}

TEST(GpioObject, EveryOperationChecksItsObject) {
    load("fault /dev/misc/gpio open 1 EIO");
    EXPECT_EQ(Ints({gpio_open(pg_gpio), gpio_close(pg_gpio), gpio_get_bit(1), gpio_close(pg_gpio),
                    gpio_open(pg_gpio), gpio_open(pg_gpio), gpio_get_bit(1)}),
              Ints({0, 0, -1, -1, -1, 0, 1}));
    GPIO copy = *pg_gpio;
    GPIO* const kept = pg_gpio;
    pg_gpio = nullptr;
    EXPECT_EQ(Ints({gpio_set_bit(1, 1), gpio_get_bit(1), gpio_release(nullptr)}), Ints(3, -1));
    pg_gpio = kept;
    EXPECT_TRUE(
        journal_follows({"out \"\\e[1;33m[libmarl] WARN : warn: gpio_open  GPIO has opend already \\n\\e[m\"",
                         "/dev/misc/gpio close", "err \"gpio_readbit: priv->common.fd \"",
                         "err \"gpio_close: priv->common.fd \"", "err \"pg_gpio==NULL\\n\"",
                         "err \"pg_gpio==NULL\\n\"", "err \"gpio_release: thiz\""}));
    // Released, it is refused, and so is what was copied of it.
    ASSERT_EQ(pg_gpio->release(pg_gpio), 0);
    for (GPIO* late : {pg_gpio, &copy}) {
        sim::clear_journal();
        EXPECT_EQ(Ints({late->addref(late), late->release(late), late->open(late), late->close(late),
                        late->readbit(late, 1), late->writebit(late, 1, 1),
                        late->interrupt_enable(late, 1, 1), late->interrupt_disable(late, 1)}),
                  Ints(8, -1));
        Strings refusals;
        for (const char* name : {"addref", "release", "open", "close", "readbit", "writebit",
                                 "interrupt_enable", "interrupt_disable"})
            refusals.push_back(std::string("err \"gpio_") + name + ": thiz->priv\"");
        EXPECT_TRUE(journal_follows(refusals));
    }
    sim::run("missing /dev/misc/gpio\nfault heap malloc 1 ENOMEM");
    GPIO* made = pg_gpio;
    EXPECT_EQ(Ints({createGPIO(&made), createGPIO(&made), gpio_get_bit(1)}), Ints(3, -1));
    EXPECT_TRUE(made == nullptr && journal_follows({"err \"open /dev/misc/gpio \""}));
    sim::run("present /dev/misc/gpio");
    EXPECT_EQ(Ints({createGPIO(&pg_gpio), gpio_get_bit(1), gpio_set_bit(48, 1)}), Ints({0, 1, 2}));
}

TEST(Expander, ReadsOneLineOfItsByteAndWritesPairs) {
    load("expander 0x88\nmissing /dev/misc/gio_expander\nfault /dev/misc/gio_expd_in read 1 short 0");
    uint8_t level = 9;
    EXPECT_EQ(Ints({gio_expander_read(3, &level), level}), Ints({-1, 9}));
    EXPECT_EQ(Ints({gio_expander_read(3, &level), gio_expander_read(2, &level), level}), Ints({1, 0, 0}));
    EXPECT_EQ(Ints({gio_expander_read(7, &level), gio_expander_read(8, &level)}), Ints({1, 0}));
    EXPECT_LT(gio_expander_write(6, 1), 0);
    sim::run("present /dev/misc/gio_expander");
    EXPECT_EQ(Ints({gio_expander_write(7, 1), gio_expander_write(8, 1), gio_expander_write(7, 2)}),
              Ints(3, 2));
    EXPECT_TRUE(journal_follows(
        {"err \"invalid parameter: num=8(rang is 0-7)\\n\"", "out \"open /dev/misc/gio_expander failed\\n\"",
         "/dev/misc/gio_expander write 2: 07 01", "out \"invalid parameter: num=8,value=1\\n\"",
         "/dev/misc/gio_expander write 2: 08 01", "out \"invalid parameter: num=7,value=2\\n\"",
         "/dev/misc/gio_expander write 2: 07 02"}));
    EXPECT_EQ(counts({"out \"invalid", "err \"invalid"}), Ints({2, 1}));
}

// What switching the modem on and off writes, per model and hardware version.
TEST(ModemPower, FollowsTheModel) {
    constexpr struct {
        const char* model;
        uint16_t hardware;
        const char* device;  // null: nothing is written
        unsigned line, on;
        int result;
    } kSwitches[] = {
        {"IPC-KA2", 0, "gio_expander", 6, 0, 2},  {"IPC-KA2", 1, "gio_expander", 6, 1, 2},
        {"IPC-KP2", 0, "gpio", 48, 0, 2},         {"IPC-KQ3", 1, "gpio", 26, 0, 2},
        {"IPC-KQ3", 2, "gpio", 26, 1, 2},         {"Q3", 0, "gio_expander", 3, 0, 2},
        {"Q5-X", 0, "gio_expander", 3, 0, 2},     {"KXE4AF", 0, "gio_expander", 3, 0, 2},
        {"KXE4AH", 3, "gio_expander", 3, 0, 2},   {"KXE8AF", 0, nullptr, 0, 0, -1},
        {"IPC-KR1", 0, nullptr, 0, 0, -1},        {"IPC-KL7", 0, "gio_expander", 6, 0, 2},
        {"KXE4AM", 0, "gpio", 5, 0, 0},           {"KXE4AM", 1, "gpio", 5, 1, 0},
        {"VMK51F", 0, "gpio", 7, 1, 2},           {"IPC-KT1", 0, "gpio", 32, 0, 2},
        {"QZ-CA-KZ9-N", 0, "gpio", 32, 1, 2},     {"IPC-KN1E", 0, "gpio", 32, 1, 2},
        {"TRV-A3-I", 0, "gio_expander", 6, 1, 2}, {"QZ-NRX2\n", 0, "gio_expander", 6, 1, 2},
        {"IPC-KM7", 0, "gio_expander", 6, 1, 2},  {"QZ-TRX5-KB-A", 0, "gpio", 37, 1, 2},
        {"IPC-KS1", 0, nullptr, 0, 0, -1},
    };
    for (const auto& s : kSwitches) {
        HWINFO = {};
        strcpy(HWINFO.product_model, s.model);
        HWINFO.hd_ver = s.hardware;
        HWINFO.video_channel = 4;
        HWINFO.dsp_chip = 6;
        for (const int request : {MARL_3G_ON, MARL_3G_OFF}) {
            SCOPED_TRACE(std::string(s.model) + (request == MARL_3G_ON ? " on" : " off"));
            sim::clear_journal();
            EXPECT_EQ(power_3g(request), s.result);
            char write[64];
            snprintf(write, sizeof write, "/dev/misc/%s write 2: %02x %02x", s.device, s.line,
                     request == MARL_3G_ON ? s.on : 1 - s.on);
            EXPECT_TRUE(s.device != nullptr ? journal_follows({write}) : !seen("/dev/"));
        }
    }
}

TEST(ModemPower, RefusalsAndIndices) {
    strcpy(HWINFO.product_model, "TRV-A1-I");
    HWINFO.dsp_chip = 5;
    EXPECT_EQ(power_3g(MARL_3G_ON), -1) << "traffic models have a switch on one main chip only";
    EXPECT_TRUE(journal_follows({"err \"power_3g: unkown product model=TRV-A1-I\\n\""}));
    strcpy(HWINFO.product_model, "VMK52F");
    sim::clear_journal();
    EXPECT_EQ(Ints({power_3g(0), power_3g(3), power_3g_on_ifindex(-1), power_3g_off_ifindex(-1)}),
              Ints(4, -1));
    EXPECT_EQ(sim::journal(), "");
    EXPECT_EQ(Ints({power_3g_on_ifindex(0), power_3g_off_ifindex(0), power_3g_off_ifindex_unchecked(-3)}),
              Ints(3, 2));
    EXPECT_TRUE(
        journal_follows({"out \"[libmarl] inerface index  is 0\\n\"", "/dev/misc/gpio write 2: 07 01",
                         "out \"[libmarl] inerface index  is -3\\n\"", "/dev/misc/gpio write 2: 07 00"}));
}

TEST(ModelTest, IsAPrefixTestOnAFixedField) {
    memset(HWINFO.product_model, 'm', sizeof HWINFO.product_model);
    const std::string full(32, 'm');
    EXPECT_EQ(Ints({check_product_model(full.c_str()), check_product_model(""), check_product_model("mn"),
                    check_product_model((full + "m").c_str()), get_dvr_info(MARL_INFO_COUNT),
                    get_dvr_info(UINT32_MAX), check_product_model(nullptr)}),
              Ints({1, 1, 0, 0, -1, -1, 0}));
    EXPECT_TRUE(journal_follows({"err \"product model too long\\n\"", "err \"invalid dvr info cmd\\n\"",
                                 "err \"invalid dvr info cmd\\n\""}));
}

TEST(Talkback, DependsOnIdentificationTypeAndSide) {
    const struct {
        int32_t type;
        uint8_t code, talkback;
        uint16_t sensor;
        Ints given;  // to directions 1, 0 and 2
    } cases[] = {
        {12, 0, 0, 0, {3, 0, 1}},  // by the channel masks
        {0, 6, 0, 0, {1, 1, 1}},  {0, 8, 0, 0, {1, 1, 1}}, {0, 8, 0, 15, {0, 0, 1}},
        {0, 2, 4, 0, {1, 0, 1}},  {0, 2, 5, 0, {0, 1, 1}}, {0, 2, 6, 0, {1, 1, 1}},
    };
    HWINFO.audio_in_channel = 3;
    for (const auto& c : cases) {
        product_type = c.type;
        hwid[0] = c.code;
        hwid[4] = c.talkback;
        HWINFO.fvideo_chip = c.sensor;
        EXPECT_EQ(Ints({get_talkback_support(1), get_talkback_support(0), get_talkback_support(2)}), c.given);
    }
}

TEST(ProcessorUsage, IdleTicksThatStepBackAreNoIdleTime) {
    constexpr std::pair<const char*, uint32_t> kIntervals[] = {
        // user, nice, system, idle; at the end with the 32 bits of an older kernel
        {"10 10 10 30", 50},           {"60 40 100 800", 19},       {"60 40 100 800", 100},
        {"150 0 150 798", 100},        {"100 0 150 898", 0},        {"200 0 150 4294967290", 1},
        {"200 0 150 2147483643", 100}, {"205 0 150 4294967294", 1}, {"210 0 150 4", 46}};
    load("");
    EXPECT_EQ(get_cpu_usage() + get_context_switches(), 0U);
    run("file! /proc/stat cpu  1 2\\n");
    EXPECT_EQ(get_cpu_usage(), 0U);
    for (const auto& [ticks, usage] : kIntervals) {
        run(std::string("file! /proc/stat cpu  ") + ticks + "\\n");
        EXPECT_EQ(get_cpu_usage(), usage) << ticks;
    }
    EXPECT_TRUE(journal_follows({"err \"sscanf  1 2\\n failed\\n\""}));
    MemInfo memory{};
    run("file! /proc/meminfo MemTotal: 1 kB\\nCached: 1 kB\\n");
    EXPECT_EQ(get_mem_info(&memory), -1) << "one number is missing";
}

TEST(ProcFields, AFileThatBreaksOffHasNoField) {
    const std::pair<std::string, int> cases[] = {
        {"read 1 EIO", -1}, {"read 2 EIO", -1}, {"read 1 short 0", -1}, {"open 1 EMFILE", -2}};
    for (const auto& [fault, result] : cases) {
        load("file! /proc/list first:1\\nkey:12345\\n\nfault /proc/list " + fault +
             "\nfault /proc/list read 1 short 15");
        char word[MARL_PROC_TOKEN_SIZE] = "left";
        EXPECT_EQ(get_proc_field("/proc/list", "key", ':', word, nullptr), result) << fault;
        EXPECT_STREQ(word, "left") << fault;
        EXPECT_EQ(get_proc_field("/proc/list", "key", ':', word, nullptr), 0) << fault;
        EXPECT_STREQ(word, "12345");
    }
    EXPECT_EQ(get_proc_field("/proc/list", std::string(128, 'k').c_str(), ':', nullptr, nullptr), -22);
    EXPECT_TRUE(seen("err \"strlen=128\\n\""));
}

}  // namespace
