#include "libmarl/hwinfo.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "base/diag.h"
#include "base/text.h"
#include "base/words.h"
#include "identity/raw_id.h"

constinit struct marl_hwinfo HWINFO = {};
constinit uint8_t hwid[MARL_HWID_SIZE] = {};
constinit int32_t product_type = 0;
constinit uint32_t product_code = 0;
constinit uint32_t hwid_absent = 0;
constinit uint32_t hwid_loaded = 0;
constinit int32_t keyboard_type = 0;
constinit const char* product_model_ptr = nullptr;

static_assert(offsetof(marl_hwinfo, hwid_ver) == MARL_MODEL_SIZE);
static_assert(offsetof(marl_hwinfo, cpu_count) == MARL_MODEL_SIZE + 2 * 11);
static_assert(offsetof(marl_hwinfo, alarm_mode) == MARL_MODEL_SIZE + 2 * 20);
static_assert(offsetof(marl_hwinfo, ext_info) == MARL_MODEL_SIZE + 2 * 27);
static_assert(sizeof(marl_hwinfo) == MARL_MODEL_SIZE + 2 * 49);

namespace {

using namespace marl;

// A value of the getter: a field of the record, or bits of the raw ID that are never copied into it.
struct Info {
    uint16_t marl_hwinfo::*field;
    BitField bits;
};

constexpr Info kInfo[MARL_INFO_COUNT] = {
    {nullptr, raw_id::kProductCode},
    {&marl_hwinfo::video_channel, {}},
    {nullptr, raw_id::kAudioChannels},
    {&marl_hwinfo::alarm_mode, {}},
    {&marl_hwinfo::fvideo_chip, {}},
    {&marl_hwinfo::dsp_chip, {}},
    {&marl_hwinfo::analog_audio_mode, {}},
    {nullptr, raw_id::kTalkback},
    {&marl_hwinfo::bvideo_chip, {}},
    {&marl_hwinfo::store_interface, {}},
    {nullptr, raw_id::kMatrix},
    {&marl_hwinfo::wireless_interface, {}},
    {&marl_hwinfo::hd_encode, {}},
    {&marl_hwinfo::hd_ver, {}},
    {&marl_hwinfo::video_interface, {}},
    {&marl_hwinfo::net_interface, {}},
    {&marl_hwinfo::intelleg_analyse, {}},
    {nullptr, raw_id::kHwinfoVer},
    {&marl_hwinfo::hwid_ver, {}},
    {&marl_hwinfo::product_category, {}},
    {&marl_hwinfo::product_sub_category, {}},
    {&marl_hwinfo::audio_in_channel, {}},
    {&marl_hwinfo::audio_out_channel, {}},
    {&marl_hwinfo::cpu_count, {}},
    {&marl_hwinfo::ext_info, {}},
};

constexpr Words kCategory = "\0ITC\0IPC\0SPC";
constexpr Words kFvideoChip =
    "\0SONY_ITC-1\0TVP5150\0AR0130\0reserved4\0reserved5\0CXD4103_ICX405AK\0MT9M034\0IMX036\0"
    "reserved9\0MT9P006\0OV7720\0AD9920\0AD9979\0AD9949\0IMX122";
constexpr Words kDspChip = "\0hi3510\0hi3511\0dm6441\0dm6446\0dm365\0dm368\0dm6448\0st710x\0dm8148";
constexpr Words kBvideoChip = "no chip\0tw2835\0pnx1700\0dm6441\0dm365\0dm368";
constexpr Words kAnalogAudio = "no audio\0TW2835\0TLV320 right channel\0TW2815";
constexpr Words kStoreInterface = "no device\0USB\0PATA\0SATA\0SDIO";
constexpr Words kAlarmMode = "\0NVS-1.0.240\0IPC-1.0.120\0IPC-1.0.110\0SD-1.0.270";
constexpr Words kWirelessInterface = "no device\0SPI\0USB\0SDIO";
constexpr Words kHdEncode = "no device\0CPLD\0encode chip";
constexpr Words kVideoInterface = "no device\0HD-SDI\0FIDDI\0HDMI\0BNC\0SDI_BNC";
constexpr Words kNetInterface = "Ethernet\0Ethernet_FIBER\0EPON\0ETHERNET_RJ45_FDDI";

enum class Show { Name, NameWithoutColon, YesNo, Decimal, Hexadecimal, Clocks };

// A line of the printed block, or a line a processor.
struct Line {
    const char* label;
    uint16_t marl_hwinfo::*field;
    Show show;
    Words names;  // an empty one is none
};

constexpr Line kLines[] = {
    {"|\thwid_ver:\t\t        ", &marl_hwinfo::hwid_ver, Show::Decimal, {}},
    {"|\tproduct_category:\t  \t", &marl_hwinfo::product_category, Show::Name, kCategory},
    {"|\tproduct_sub_category:\t\t", &marl_hwinfo::product_sub_category, Show::Decimal, {}},
    {"|\tforward video chip:\t\t", &marl_hwinfo::fvideo_chip, Show::Name, kFvideoChip},
    {"|\tDSP chip:\t\t        ", &marl_hwinfo::dsp_chip, Show::Name, kDspChip},
    {"|\tback video chip:\t\t", &marl_hwinfo::bvideo_chip, Show::Name, kBvideoChip},
    {"|\tvideo_channel:\t\t\t", &marl_hwinfo::video_channel, Show::Decimal, {}},
    {"|\tanalog audio mode:\t\t", &marl_hwinfo::analog_audio_mode, Show::Name, kAnalogAudio},
    {"|\taudio_in_channel:\t        ", &marl_hwinfo::audio_in_channel, Show::Hexadecimal, {}},
    {"|\taudio_out_channel:\t        ", &marl_hwinfo::audio_out_channel, Show::Hexadecimal, {}},
    {"|\tstore interface:\t\t", &marl_hwinfo::store_interface, Show::Name, kStoreInterface},
    {"|\tcpu_count:\t                ", &marl_hwinfo::cpu_count, Show::Decimal, {}},
    {"|\tcpu_clock_freq", &marl_hwinfo::cpu_count, Show::Clocks, {}},
    {"|\talarm_mode:\t\t        ", &marl_hwinfo::alarm_mode, Show::Name, kAlarmMode},
    {"|\twireless interface:\t\t", &marl_hwinfo::wireless_interface, Show::Name, kWirelessInterface},
    {"|\thardware encode:\t\t", &marl_hwinfo::hd_encode, Show::Name, kHdEncode},
    {"|\tvideo_interface:       \t\t", &marl_hwinfo::video_interface, Show::Name, kVideoInterface},
    {"|\tnet_interface:                  ", &marl_hwinfo::net_interface, Show::NameWithoutColon,
     kNetInterface},
    {"|\tintelleg_analyse:            \t", &marl_hwinfo::intelleg_analyse, Show::YesNo, {}},
    {"|\thardware version:\t\t", &marl_hwinfo::hd_ver, Show::Decimal, {}},
};

void print_clocks(const char* label, uint16_t count) {
    for (int i = 0; i < std::min<int>(count, MARL_CPU_MAX); ++i) {
        diag::out("%s[%d]:              %dMHz\n", label, i, HWINFO.cpu_clock_freq[i]);
    }
}

void print_line(const Line& line) {
    const uint16_t value = HWINFO.*line.field;
    const char* name = line.names.at(value);
    switch (line.show) {
        case Show::Decimal:
            diag::out("%s%d\n", line.label, value);
            break;
        case Show::Hexadecimal:
            diag::out("%s0x%x\n", line.label, value);
            break;
        case Show::YesNo:
            diag::out("%s%s\n", line.label, value != 0 ? "Yes" : "No");
            break;
        case Show::Clocks:
            print_clocks(line.label, value);
            break;
        case Show::Name:
        case Show::NameWithoutColon:
            if (name != nullptr && *name != '\0') {
                diag::out("%s%s\n", line.label, name);
            } else {
                diag::out("%sunknow%s %d\n", line.label, line.show == Show::Name ? ":" : "", value);
            }
            break;
    }
}

std::string_view product_model() { return field_text(HWINFO.product_model, sizeof HWINFO.product_model); }

}  // namespace

int get_dvr_info(uint32_t index) {
    if (index >= MARL_INFO_COUNT) {
        diag::err("invalid dvr info cmd\n");
        return -1;
    }
    if (index == MARL_INFO_PRODUCT_TYPE && product_type != 0) return product_type;
    const Info& info = kInfo[index];
    if (info.field != nullptr) return HWINFO.*info.field;
    const uint16_t value = raw_field(hwid, info.bits);
    return index == MARL_INFO_AUDIO_CHANNEL && value == 0 ? raw_id::kZeroChannels : value;
}

int get_product_type() { return get_dvr_info(MARL_INFO_PRODUCT_TYPE); }
uint8_t get_product_type_u8() { return static_cast<uint8_t>(get_dvr_info(MARL_INFO_PRODUCT_TYPE)); }
uint8_t get_video_channel_num() { return static_cast<uint8_t>(get_dvr_info(MARL_INFO_VIDEO_CHANNEL)); }
uint8_t get_hardware_version() { return static_cast<uint8_t>(get_dvr_info(MARL_INFO_HD_VER)); }

int check_product_model(const char* name) {
    if (name == nullptr) return 0;
    if (strlen(name) > MARL_MODEL_SIZE) {
        diag::err("product model too long\n");
        return 0;
    }
    return product_model().starts_with(name) ? 1 : 0;
}

int get_talkback_support(int direction) {
    constexpr int kOutput = 0;
    constexpr int kInput = 1;
    constexpr int kNone = 0;
    constexpr int kInputOnly = 4;
    constexpr int kOutputOnly = 5;
    if (product_type != 0 && direction == kInput) return get_dvr_info(MARL_INFO_AUDIO_IN_CHANNEL);
    if (product_type != 0 && direction == kOutput) return get_dvr_info(MARL_INFO_AUDIO_OUT_CHANNEL);
    const int type = get_product_type();
    if (type == 6 || (type == 8 && get_dvr_info(MARL_INFO_FVIDEO_CHIP) != 15)) return 1;
    const int talkback = get_dvr_info(MARL_INFO_TALKBACK);
    if (direction == kInput) return talkback != kNone && talkback != kOutputOnly;
    if (direction == kOutput) return talkback != kNone && talkback != kInputOnly;
    return 1;
}

int print_system_info() {
    constexpr const char* kFrame = "**********************************************************************";
    const auto model = product_model();
    diag::line(kFrame);
    diag::line("|                      SYSTEM INFO                                       ");
    diag::out("|\tproduct_model:\t\t\t%.*s\n", static_cast<int>(model.size()), model.data());
    for (const Line& line : kLines) print_line(line);
    return diag::line(kFrame);
}
