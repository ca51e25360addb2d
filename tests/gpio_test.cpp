// The GPIO object, the expander, and the modem's power switch behind them.
#include <libmarl.h>

#include <cstring>

#include "helpers/board.h"

namespace {

using namespace board;

TEST(GpioObject, OneAtATimeUntilItsLastReferenceGoes) {
    GPIO* other = pg_gpio;
    EXPECT_EQ(createGPIO(&other), -1);
    EXPECT_EQ(other, pg_gpio);
    EXPECT_TRUE(
        journal_follows({"out \"\\e[0;32;31m[libmarl] ERROR (src/misc/gpio|createGPIO|258): Error:OBJ is "
                         "created\\n\\e[m\""}));
    EXPECT_EQ(Ints({pg_gpio->addref(pg_gpio), pg_gpio->release(pg_gpio), createGPIO(&other)}),
              Ints({0, 0, -1}));
    EXPECT_EQ(Ints({pg_gpio->release(pg_gpio), createGPIO(nullptr)}), Ints({0, -1}));
    sim::run("missing /dev/misc/gpio");
    EXPECT_EQ(createGPIO(&other), -1);
    EXPECT_EQ(other, nullptr);
    EXPECT_TRUE(
        journal_follows({"out \"\\e[0;32;31m[libmarl] ERROR (src/misc/gpio|createGPIO|264): Obiect is NULL",
                         "err \"open /dev/misc/gpio \""}));
    sim::run("present /dev/misc/gpio");
    ASSERT_EQ(createGPIO(&pg_gpio), 0);
    EXPECT_EQ(gpio_set_bit(48, 1), 2);
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
    sim::run("fault /dev/misc/gpio read 1 EIO");
    EXPECT_LT(gpio_get_bit(7), 0);
}

TEST(GpioObject, EveryOperationChecksItsObject) {
    GPIO empty{};
    EXPECT_EQ(Ints({gpio_open(pg_gpio), gpio_close(pg_gpio)}), Ints(2, 0));
    EXPECT_EQ(Ints({gpio_get_bit(1), gpio_close(pg_gpio), gpio_release(nullptr), gpio_addref(&empty)}),
              Ints(4, -1));
    EXPECT_EQ(Ints({gpio_open(pg_gpio), gpio_get_bit(1)}), Ints({0, 1}));
    GPIO* kept = pg_gpio;
    pg_gpio = nullptr;
    EXPECT_EQ(Ints({gpio_set_bit(1, 1), gpio_get_bit(1)}), Ints(2, -1));
    pg_gpio = kept;
    EXPECT_TRUE(
        journal_follows({"out \"\\e[1;33m[libmarl] WARN : warn: gpio_open  GPIO has opend already \\n\\e[m\"",
                         "err \"gpio_readbit: priv->common.fd \"", "err \"gpio_close: priv->common.fd \"",
                         "err \"gpio_release: thiz\"", "err \"gpio_addref: thiz->priv\"",
                         "err \"pg_gpio==NULL\\n\"", "err \"pg_gpio==NULL\\n\""}));
}

TEST(Expander, ReadsOneLineOfItsByteAndWritesPairs) {
    load("expander 0x08\nmissing /dev/misc/gio_expander");
    uint8_t level = 9;
    EXPECT_EQ(Ints({gio_expander_read(3, &level), gio_expander_read(2, &level), level}), Ints({1, 0, 0}));
    EXPECT_EQ(gio_expander_read(1000, &level), 0) << "lines above 7 read as 0";
    EXPECT_LT(gio_expander_write(6, 1), 0);
    sim::run("present /dev/misc/gio_expander");
    EXPECT_EQ(Ints({gio_expander_write(6, 1), gio_expander_write(9, 2)}), Ints(2, 2));
    EXPECT_TRUE(journal_follows(
        {"err \"invalid parameter: num=1000(rang is 0-7)\\n\"",
         "out \"open /dev/misc/gio_expander failed\\n\"", "/dev/misc/gio_expander write 2: 06 01",
         "out \"invalid parameter: num=9,value=2\\n\"", "/dev/misc/gio_expander write 2: 09 02"}));
}

// What switching the modem on and off writes, per model and hardware version.
TEST(ModemPower, FollowsTheModel) {
    constexpr const char* kExpander = "/dev/misc/gio_expander";
    constexpr const char* kGpio = "/dev/misc/gpio";
    constexpr struct {
        const char* model;
        uint16_t hardware;
        const char* device;  // null: nothing is written
        int line, on, result;
    } kSwitches[] = {
        {"IPC-KA2", 0, kExpander, 6, 0, 2},  {"IPC-KA2", 1, kExpander, 6, 1, 2},
        {"IPC-KP2", 0, kGpio, 48, 0, 2},     {"IPC-KQ3", 1, kGpio, 26, 0, 2},
        {"IPC-KQ3", 2, kGpio, 26, 1, 2},     {"Q3", 0, kExpander, 3, 0, 2},
        {"Q5-X", 0, kExpander, 3, 0, 2},     {"KXE4AF", 0, kExpander, 3, 0, 2},
        {"KXE4AH", 3, kExpander, 3, 0, 2},   {"KXE8AF", 0, nullptr, 0, 0, -1},
        {"IPC-KR1", 0, nullptr, 0, 0, -1},   {"IPC-KL7", 0, kExpander, 6, 0, 2},
        {"KXE4AM", 0, kGpio, 5, 0, 0},       {"KXE4AM", 1, kGpio, 5, 1, 0},
        {"VMK51F", 0, kGpio, 7, 1, 2},       {"IPC-KT1", 0, kGpio, 32, 0, 2},
        {"QZ-CA-KZ9-N", 0, kGpio, 32, 1, 2}, {"IPC-KN1E", 0, kGpio, 32, 1, 2},
        {"TRV-A3-I", 0, kExpander, 6, 1, 2}, {"QZ-NRX2\n", 0, kExpander, 6, 1, 2},
        {"IPC-KM7", 0, kExpander, 6, 1, 2},  {"QZ-TRX5-KB-A", 0, kGpio, 37, 1, 2},
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
            const int level = request == MARL_3G_ON ? s.on : 1 - s.on;
            snprintf(write, sizeof write, "%s write 2: %02x %02x", s.device, static_cast<unsigned>(s.line),
                     static_cast<unsigned>(level));
            EXPECT_TRUE(s.device != nullptr ? journal_follows({write}) : !seen("/dev/"));
        }
    }
}

TEST(ModemPower, RefusalsAndIndices) {
    strcpy(HWINFO.product_model, "TRV-A1-I");
    HWINFO.dsp_chip = 5;
    sim::clear_journal();
    EXPECT_EQ(power_3g(MARL_3G_ON), -1) << "traffic models have a switch on one main chip only";
    EXPECT_TRUE(journal_follows({"err \"power_3g: unkown product model=TRV-A1-I\\n\""}));
    strcpy(HWINFO.product_model, "VMK52F");
    sim::clear_journal();
    EXPECT_EQ(Ints({power_3g(0), power_3g(3), power_3g_on_ifindex(-1), power_3g_off_ifindex(-1)}),
              Ints(4, -1));
    EXPECT_EQ(sim::journal(), "");
    EXPECT_EQ(Ints({power_3g_on_ifindex(0), power_3g_off_ifindex_unchecked(-3)}), Ints(2, 2));
    EXPECT_TRUE(
        journal_follows({"out \"[libmarl] inerface index  is 0\\n\"", "/dev/misc/gpio write 2: 07 01",
                         "out \"[libmarl] inerface index  is -3\\n\"", "/dev/misc/gpio write 2: 07 00"}));
}

TEST(ModelTest, IsAPrefixTestOnAFixedField) {
    memset(HWINFO.product_model, 'm', sizeof HWINFO.product_model);
    const std::string full(32, 'm');
    EXPECT_EQ(Ints({check_product_model(full.c_str()), check_product_model(""), check_product_model("mn"),
                    check_product_model(nullptr), check_product_model((full + "m").c_str())}),
              Ints({1, 1, 0, 0, 0}));
    EXPECT_EQ(Ints({get_dvr_info(MARL_INFO_COUNT), get_dvr_info(UINT32_MAX)}), Ints(2, -1));
    EXPECT_TRUE(journal_follows({"err \"product model too long\\n\"", "err \"invalid dvr info cmd\\n\"",
                                 "err \"invalid dvr info cmd\\n\""}));
}

TEST(Talkback, DependsOnIdentificationTypeAndSide) {
    const struct {
        int32_t type;
        uint8_t code, talkback;
        uint16_t sensor;
        Ints answers;  // to directions 1, 0 and 2
    } cases[] = {
        {12, 0, 0, 0, {3, 0, 1}},  // by the channel masks
        {0, 6, 0, 0, {1, 1, 1}},  {0, 8, 0, 0, {1, 1, 1}}, {0, 8, 0, 15, {0, 0, 1}},
        {0, 2, 4, 0, {1, 0, 1}},  {0, 2, 5, 0, {0, 1, 1}}, {0, 2, 6, 0, {1, 1, 1}},
    };
    HWINFO.audio_in_channel = 3;
    HWINFO.audio_out_channel = 0;
    for (const auto& c : cases) {
        product_type = c.type;
        memset(hwid, 0, sizeof hwid);
        hwid[0] = c.code;
        hwid[4] = c.talkback;
        HWINFO.fvideo_chip = c.sensor;
        EXPECT_EQ(Ints({get_talkback_support(1), get_talkback_support(0), get_talkback_support(2)}),
                  c.answers);
    }
}

}  // namespace
