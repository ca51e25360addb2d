#include "libmarl/hwinfo.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>

#include "base/diag.h"
#include "base/text.h"
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

using Names = std::span<const char* const>;

constexpr const char* kCategory[] = {nullptr, "ITC", "IPC", "SPC"};
constexpr const char* kFvideoChip[] = {
    nullptr,  "SONY_ITC-1", "TVP5150", "AR0130", "reserved4", "reserved5", "CXD4103_ICX405AK", "MT9M034",
    "IMX036", "reserved9",  "MT9P006", "OV7720", "AD9920",    "AD9979",    "AD9949",           "IMX122"};
constexpr const char* kDspChip[] = {nullptr, "hi3510", "hi3511", "dm6441", "dm6446",
                                    "dm365", "dm368",  "dm6448", "st710x", "dm8148"};
constexpr const char* kBvideoChip[] = {"no chip", "tw2835", "pnx1700", "dm6441", "dm365", "dm368"};
constexpr const char* kAnalogAudio[] = {"no audio", "TW2835", "TLV320 right channel", "TW2815"};
constexpr const char* kStoreInterface[] = {"no device", "USB", "PATA", "SATA", "SDIO"};
constexpr const char* kAlarmMode[] = {nullptr, "NVS-1.0.240", "IPC-1.0.120", "IPC-1.0.110", "SD-1.0.270"};
constexpr const char* kWirelessInterface[] = {"no device", "SPI", "USB", "SDIO"};
constexpr const char* kHdEncode[] = {"no device", "CPLD", "encode chip"};
constexpr const char* kVideoInterface[] = {"no device", "HD-SDI", "FIDDI", "HDMI", "BNC", "SDI_BNC"};
constexpr const char* kNetInterface[] = {"Ethernet", "Ethernet_FIBER", "EPON", "ETHERNET_RJ45_FDDI"};

enum class Show { Name, NameWithoutColon, YesNo, Decimal, Hexadecimal, Clocks };

// A line of the printed block, or a line a processor.
struct Line {
    const char* label;
    uint16_t marl_hwinfo::*field;
    Show show;
    Names names;
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
    const bool named = value < line.names.size() && line.names[value] != nullptr;
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
            if (named) {
                diag::out("%s%s\n", line.label, line.names[value]);
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
