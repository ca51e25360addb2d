// The section-based identification: one bracketed key of the boot environment a field.
#include <cstdio>
#include <cstring>
#include <iterator>
#include <span>

#include "base/diag.h"
#include "base/module.h"
#include "base/text.h"
#include "base/words.h"
#include "identity/source.h"
#include "libmarl/env.h"
#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"

constinit struct marl_hwinfo_sections HWINFO_SECTIONS = {};
static_assert(sizeof(marl_hwinfo_sections) == 18 * sizeof(uint16_t));

namespace {

using namespace marl;

constexpr Words kAlarmMode = "NA\0NVS-1.0.240\0IPC-1.0.120\0IPC-1.0.110\0SD-1.0.270\0IPC-1.0.440";
constexpr Words kFvideoChip =
    "NA\0SONY_ITC-1\0TVP5150\0MT9M033\0reserved4\0reserved5\0CXD4103_ICX405AK\0MT9M034\0IMX036\0"
    "reserved9\0MT9P006\0OV7720\0AD9920\0AD9979\0AD9949\0IMX122\0AD9923";
constexpr Words kDspChip = "NA\0HI3510\0HI3511\0DM6441\0DM6446\0DM365\0DM368\0DM6448";
constexpr Words kAnalogAudioMode = "NA\0TW2835_CTRL\0TLV320_R_CTRL\0TW2815_CTRL";
constexpr Words kTalkback =
    "NA\0TLV320_L_CTRL\0TLV320_MIC_CTRL\0TWI2837_MIC_CTRL\0AUDIO_IN\0AUDIO_OUT\0AUDIO_IN_OUT";
constexpr Words kBvideoChip = "NA\0TW2835\0PNX1700\0DM6441\0DM365\0DM368";
constexpr Words kStoreInterface = "NA\0USB\0PATA\0SATA\0SDIO";
constexpr Words kMatrix = "NA";
constexpr Words kWirelessInterface = "NA\0SPI\0USB\0SDIO";
constexpr Words kHdEncode = "NA\0CPLD_CODE\0CHIP_CODE";
constexpr Words kVideoInterface = "NA\0HD-SDI\0FDDI\0HDMI\0BNC\0SDI_BNC";
constexpr Words kNetInterface = "ETHERNET\0ETHERNET_FDDI\0EPON\0ETHERNET_RJ45_FDDI";
constexpr Words kIntellegAnalyse = "NO\0YES";

enum class Kind : uint8_t { Model, Number, Version, Name };

struct Section {
    const char* key;
    uint16_t marl_hwinfo_sections::*field;
    Kind kind;
    Words names = {};
    int version_line = 0;  // of the warning about a version
};

constexpr Section kSections[] = {
    {"[product_type]", &marl_hwinfo_sections::product_type, Kind::Model},
    {"[video_channel]", &marl_hwinfo_sections::video_channel, Kind::Number},
    {"[audio_channel]", &marl_hwinfo_sections::audio_channel, Kind::Number},
    {"[alarm_mode]", &marl_hwinfo_sections::alarm_mode, Kind::Name, kAlarmMode},
    {"[fvideo_chip]", &marl_hwinfo_sections::fvideo_chip, Kind::Name, kFvideoChip},
    {"[dsp_chip]", &marl_hwinfo_sections::dsp_chip, Kind::Name, kDspChip},
    {"[analog_audio_mode]", &marl_hwinfo_sections::analog_audio_mode, Kind::Name, kAnalogAudioMode},
    {"[talkback]", &marl_hwinfo_sections::talkback, Kind::Name, kTalkback},
    {"[bvideo_chip]", &marl_hwinfo_sections::bvideo_chip, Kind::Name, kBvideoChip},
    {"[store_interface]", &marl_hwinfo_sections::store_interface, Kind::Name, kStoreInterface},
    {"[matrix]", &marl_hwinfo_sections::matrix, Kind::Name, kMatrix},
    {"[wireless_interface]", &marl_hwinfo_sections::wireless_interface, Kind::Name, kWirelessInterface},
    {"[hd_encode]", &marl_hwinfo_sections::hd_encode, Kind::Name, kHdEncode},
    {"[hd_ver]", &marl_hwinfo_sections::hd_ver, Kind::Version, {}, 1205},
    {"[video_interface]", &marl_hwinfo_sections::video_interface, Kind::Name, kVideoInterface},
    {"[net_interface]", &marl_hwinfo_sections::net_interface, Kind::Name, kNetInterface},
    {"[intelleg_analyse]", &marl_hwinfo_sections::intelleg_analyse, Kind::Name, kIntellegAnalyse},
    {"[hwinfo_ver]", &marl_hwinfo_sections::hwinfo_ver, Kind::Version, {}, 1250},
};

constexpr uint32_t kSectionCount = std::size(kSections);
constexpr uint32_t kProductTypeSection = 0;
constexpr uint32_t kFvideoChipSection = 4;

int report_undefined(const diag::Site& site, const char* name, uint32_t section) {
    diag::warn(site, "Undefined %s in %s\n", name, kSections[section].key);
    return -1;
}

int report_unknown(const char* name, uint32_t section) {
    return report_undefined({module::kIdentity, "string2Value", 1037}, name, section);
}

int position_of(const char* name, const Words& names, uint32_t section) {
    int position = 0;
    for (const char* known : names) {
        if (strcmp(known, name) == 0) return position;
        ++position;
    }
    return report_unknown(name, section);
}

// Blanks, signs and leading zeros are as scanf has them; wide numbers, so that a long one stays too large.
void take_version(const Section& section, const char* value) {
    long long major = 0;
    long long minor = 0;
    const int count = sscanf(value, "V%lld.%lld", &major, &minor);
    if (count < 2 || major < 1 || major > 16 || minor < 0 || minor > 16) {
        diag::warn({module::kIdentity, "get_hwinfo2Struct", section.version_line},
                   "Error:Too large version %s\n", value);
        return;
    }
    HWINFO_SECTIONS.*section.field = static_cast<uint16_t>(major % 16 * 16 + minor % 16 - 16);
}

void take_section(uint32_t index, const char* value) {
    const Section& section = kSections[index];
    uint16_t& field = HWINFO_SECTIONS.*section.field;
    switch (section.kind) {
        case Kind::Model:
            field = static_cast<uint16_t>(string2ValueProductType(value, MODEL_TABLE, index));
            break;
        case Kind::Number:
            field = static_cast<uint16_t>(decimal(value));
            break;
        case Kind::Version:
            take_version(section, value);
            break;
        case Kind::Name:
            field = static_cast<uint16_t>(position_of(value, section.names, index));
            break;
    }
}

void get_hwinfo2Struct() {
    for (uint32_t index = 0; index < kSectionCount; ++index) {
        char value[128] = {};
        if (get_armboot_para(kSections[index].key, value, sizeof value) < 0) {
            diag::warn({module::kIdentity, "get_hwinfo2Struct", 1065}, "Get %s error\n",
                       kSections[index].key);
        } else {
            take_section(index, value);
        }
    }
    product_code = HWINFO_SECTIONS.product_type;
}

int section_contains(uint32_t section, const char* text, const diag::Site& site) {
    if (text == nullptr) return -1;
    char value[128] = {};
    if (get_armboot_para(kSections[section].key, value, sizeof value) < 0) {
        diag::warn(site, "Get product error\n");
        return -1;
    }
    return strstr(value, text) != nullptr ? 1 : 0;
}

}  // namespace

int string2ValueProductType(const char* name, const char* const table[][MARL_MODEL_SLOTS], uint32_t section) {
    if (name == nullptr || table == nullptr || section >= kSectionCount) return -1;
    for (int row = 0; row < MARL_MODEL_ROWS; ++row) {
        for (const char* model : std::span(table[row], MARL_MODEL_SLOTS)) {
            if (model == nullptr || *model == '\0') break;
            if (strcmp(model, name) == 0) return row;
        }
    }
    return report_undefined({module::kIdentity, "string2ValueProductType", 1050}, name, section);
}

int string2Value(const char* name, const char* const* list, uint32_t section) {
    if (name == nullptr || list == nullptr || section >= kSectionCount) return -1;
    for (int position = 0; list[position] != nullptr; ++position) {
        if (strcmp(list[position], name) == 0) return position;
    }
    return report_unknown(name, section);
}

int check_product_type(const char* text) {
    return section_contains(kProductTypeSection, text, {module::kIdentity, "check_product_type", 1571});
}

int check_fvideo_chip(const char* text) {
    return section_contains(kFvideoChipSection, text, {module::kIdentity, "check_fvideo_chip", 1597});
}

int get_hwid_scheme() {
    char value[128] = {};
    hwid_absent = get_armboot_para("HWID", value, sizeof value) < 0 ? 1 : 0;
    return static_cast<int>(hwid_absent);
}

int get_hwid_info() {
    const bool absent = get_hwid_scheme() != 0;
    const bool loaded = environment_is_loaded();
    if (absent) {
        get_hwinfo2Struct();
    } else {
        hwid_transform();
    }
    // An image that came only while the sections were looked up holds what the first look-ups missed, perhaps
    // an HWID. Once it is there it stays, so this happens once.
    return !loaded && environment_is_loaded() ? get_hwid_info() : 0;
}
