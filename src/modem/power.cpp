#include "base/diag.h"
#include "identity/catalogue.h"
#include "libmarl/gpio.h"
#include "libmarl/hwinfo.h"
#include "libmarl/power_3g.h"
#include "modem/state.h"

constinit int marl::g_modem_type = marl::kUnknownModem;
constinit int marl::g_queried_product_type = 0;

namespace {

using namespace marl;
using catalogue::Encoder;

// What a rule looks at.
enum class Match { Group, GroupOnDm368, Encoder, Any };

// Where the switch is.
enum class Output { Expander, Gpio, Refused, Unlisted };

// The hardware versions on which the level for "on" is 1; on the others it is 0.
enum class HighIsOn { Never, Always, FromVersion1, FromVersion2 };

struct Rule {
    Match match;
    catalogue::Group group;
    Encoder family;
    Output output;
    uint32_t line;
    HighIsOn high_is_on;
};

constexpr uint32_t kAmLine = 5;
constexpr uint32_t kAmLineOfThirdVendor = 48;

constexpr Rule for_group(catalogue::Group group, Output output, uint32_t line, HighIsOn high_is_on) {
    return {Match::Group, group, {}, output, line, high_is_on};
}

constexpr Rule for_encoder(Encoder family, Output output, uint32_t line, HighIsOn high_is_on) {
    return {Match::Encoder, {}, family, output, line, high_is_on};
}

// The first rule that matches the board holds.
constexpr Rule kRules[] = {
    for_group(catalogue::kKa2, Output::Expander, 6, HighIsOn::FromVersion1),
    for_group(catalogue::kFirstPair, Output::Gpio, 48, HighIsOn::Never),
    for_group(catalogue::kKq3, Output::Gpio, 26, HighIsOn::FromVersion2),
    for_group(catalogue::kHubModels, Output::Expander, 3, HighIsOn::Never),
    for_encoder(Encoder::Af, Output::Expander, 3, HighIsOn::Never),
    for_encoder(Encoder::Ah, Output::Expander, 3, HighIsOn::Never),
    for_group(catalogue::kRefused, Output::Refused, 0, HighIsOn::Never),
    for_group(catalogue::kKl7Group, Output::Expander, 6, HighIsOn::Never),
    for_encoder(Encoder::Am, Output::Gpio, kAmLine, HighIsOn::FromVersion1),
    for_group(catalogue::kModulePair, Output::Gpio, 7, HighIsOn::Always),
    for_group(catalogue::kSecondPair, Output::Gpio, 32, HighIsOn::Never),
    for_group(catalogue::kCameras, Output::Gpio, 32, HighIsOn::Always),
    {Match::GroupOnDm368, catalogue::kTraffic, {}, Output::Expander, 6, HighIsOn::Always},
    for_group(catalogue::kMultiPort, Output::Expander, 6, HighIsOn::Always),
    for_group(catalogue::kRecorders, Output::Expander, 6, HighIsOn::Always),
    for_group(catalogue::kKbA, Output::Gpio, 37, HighIsOn::Always),
    {Match::Any, {}, {}, Output::Unlisted, 0, HighIsOn::Never},
};

bool matches(const Rule& rule) {
    switch (rule.match) {
        case Match::Group:
            return catalogue::is_model_of(rule.group);
        case Match::GroupOnDm368:
            return catalogue::is_model_of(rule.group) &&
                   get_dvr_info(MARL_INFO_DSP_CHIP) == catalogue::kMainChipDm368;
        case Match::Encoder:
            return catalogue::is_encoder(rule.family);
        case Match::Any:
            break;
    }
    return true;
}

const Rule& rule_of_board() {
    const Rule* rule = kRules;
    while (!matches(*rule)) ++rule;  // the last one matches every board
    return *rule;
}

uint32_t level_for(bool on, HighIsOn high_is_on) {
    bool high = high_is_on == HighIsOn::Always;
    if (high_is_on == HighIsOn::FromVersion1) high = power_3g_hw_version() >= 1;
    if (high_is_on == HighIsOn::FromVersion2) high = power_3g_hw_version() >= 2;
    return on == high ? 1 : 0;
}

int answer_unlisted() {
    if (g_queried_product_type == 22 || g_queried_product_type == 24) return 0;
    diag::err("power_3g: unkown product model=%.*s\n", MARL_MODEL_SIZE, HWINFO.product_model);
    return -1;
}

// The encoders with the letter M switch one of two lines, by modem, and do not report how that went.
int switch_am_encoder(uint32_t level) {
    gpio_set_bit(g_modem_type == kThirdVendorModem ? kAmLineOfThirdVendor : kAmLine, level);
    return 0;
}

int print_index(int index) { return diag::out("[libmarl] inerface index  is %d\n", index); }

}  // namespace

int power_3g(int request) {
    if (request != MARL_3G_ON && request != MARL_3G_OFF) return -1;
    const Rule& rule = rule_of_board();
    if (rule.output == Output::Refused) return -1;
    if (rule.output == Output::Unlisted) return answer_unlisted();
    const uint32_t level = level_for(request == MARL_3G_ON, rule.high_is_on);
    if (rule.match == Match::Encoder && rule.family == Encoder::Am) return switch_am_encoder(level);
    if (rule.output == Output::Expander) return gio_expander_write(rule.line, level);
    return gpio_set_bit(rule.line, level);
}

int power_3g_on() { return power_3g(MARL_3G_ON); }

int power_3g_off() { return power_3g(MARL_3G_OFF); }

int power_3g_hw_version() {
    const int version = get_dvr_info(MARL_INFO_HD_VER);
    if (version >= 0) return version;
    diag::err("get hwinfo failed, set 0\n");
    return 0;
}

int power_3g_on_ifindex_unchecked(int index) {
    print_index(index);
    return power_3g_on();
}

int power_3g_off_ifindex_unchecked(int index) {
    print_index(index);
    return power_3g_off();
}

int power_3g_on_ifindex(int index) { return index < 0 ? -1 : power_3g_on_ifindex_unchecked(index); }

int power_3g_off_ifindex(int index) { return index < 0 ? -1 : power_3g_off_ifindex_unchecked(index); }
