// Identification of the board: the colon-separated scheme, and the packed raw ID with its three sources.
#include "libmarl/hwid.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "base/bytes.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/proc_field.h"
#include "base/text.h"
#include "identity/catalogue.h"
#include "identity/raw_id.h"
#include "libmarl/env.h"

namespace {

using namespace marl;

constexpr const char* kKey = "HWID";
constexpr const char* kIdRecordPath = "/mnt/mtdblock1";
constexpr const char* kDefinitionPath = "/mnt/custom/ProductDefinition";

// Takes the text up to the next `separator` off the front of `rest`; nothing when all parts are taken.
std::optional<std::string_view> next_part(std::optional<std::string_view>& rest, char separator) {
    if (!rest) return std::nullopt;
    const size_t end = rest->find(separator);
    const std::string_view part = first_of(*rest, end);
    if (end == std::string_view::npos) {
        rest.reset();
    } else {
        rest->remove_prefix(end + 1);
    }
    return part;
}

uint16_t hexadecimal_part(std::string_view part) {
    char digits[32];
    copy_text(digits, sizeof digits, part);
    return static_cast<uint16_t>(hexadecimal(digits));
}

void take_clocks(std::string_view list) {
    HWINFO.cpu_count = 0;
    std::optional<std::string_view> rest;
    if (!list.empty()) rest = list;
    while (const auto clock = next_part(rest, '_')) {
        if (HWINFO.cpu_count == MARL_CPU_MAX) break;
        HWINFO.cpu_clock_freq[HWINFO.cpu_count++] = hexadecimal_part(*clock);
    }
}

// The 16-bit slots of the record, from hwid_ver on, which the parts fill by position.
constexpr size_t kSlots = (sizeof(marl_hwinfo) - offsetof(marl_hwinfo, hwid_ver)) / sizeof(uint16_t);
constexpr size_t kClockSlots = 1 + MARL_CPU_MAX;
constexpr unsigned kClockPart = 12;

void take_slot(size_t slot, uint16_t value) {
    if (slot >= kSlots) return;
    auto* record = reinterpret_cast<unsigned char*>(&HWINFO);
    memcpy(record + offsetof(marl_hwinfo, hwid_ver) + slot * sizeof value, &value, sizeof value);
}

void take_colon_separated(std::string_view text) {
    std::optional<std::string_view> rest = text;
    char model[128];
    copy_text(model, sizeof model, *next_part(rest, ':'));
    copy_text(HWINFO.product_model, sizeof HWINFO.product_model, model);
    product_type = string2ValueProductType(model, MODEL_TABLE, 0);
    size_t slot = 0;
    for (unsigned number = 1; const auto part = next_part(rest, ':'); ++number) {
        if (number == kClockPart || part->find('_') != std::string_view::npos) {
            take_clocks(*part);
            slot += kClockSlots;
        } else {
            take_slot(slot++, hexadecimal_part(*part));
        }
    }
}

void store_id(size_t offset, uint64_t value) { store_le(hwid + offset, value); }

bool take_id_from_boot_parameters() {
    char digits[28] = {};
    if (read_proc_field(device::kBootParameters, kKey, digits, {}) < 0) return false;
    store_id(0, hexadecimal(digits));
    product_code = raw_field(raw_id::kProductCode);
    return true;
}

bool take_id_from_environment() {
    constexpr size_t kDigits = 16;  // of one 64-bit half
    char digits[28] = {};
    if (get_armboot_para(kKey, digits, sizeof digits) < 0) return false;
    const size_t length = strlen(digits);
    const size_t leading = length > kDigits ? length - kDigits : 0;
    store_id(0, hexadecimal(digits + leading));
    if (leading > 0) {
        digits[leading] = '\0';
        store_id(8, hexadecimal(digits));
    }
    hwid_loaded = 1;
    product_code = raw_field(raw_id::kProductCode);
    return true;
}

void take_id_from_record() {
    constexpr uint32_t kMagic = 0x89ABCDEF;
    constexpr size_t kMagicSize = 4;
    const Fd file(open_file(kIdRecordPath, O_RDONLY));
    if (!file.is_open()) {
        diag::err("open %s", kIdRecordPath);
        return;
    }
    uint8_t record[kMagicSize + MARL_HWID_SIZE];
    if (!read_whole(file.get(), record, sizeof record)) {
        diag::err("read %s", kIdRecordPath);
        return;
    }
    if (const auto magic = load_le<uint32_t>(record); magic != kMagic) {
        diag::out("MAGIC error: %x\n", magic);
        return;
    }
    uint8_t* id = record + kMagicSize;
    const size_t used = id[7] >> 4;
    memset(id + used, 0, MARL_HWID_SIZE - used);
    memcpy(hwid, id, MARL_HWID_SIZE);
}

void take_raw_id() {
    if (take_id_from_boot_parameters()) return;
    diag::err("get hwid err\n");
    if (hwid_loaded == 1 || take_id_from_environment()) return;
    diag::err("get_armboot_para\n");
    take_id_from_record();
}

struct DecodedField {
    BitField bits;
    uint16_t marl_hwinfo::*field;
};

constexpr DecodedField kDecoded[] = {
    {raw_id::kDspChip, &marl_hwinfo::dsp_chip},
    {raw_id::kBvideoChip, &marl_hwinfo::bvideo_chip},
    {raw_id::kFvideoChip, &marl_hwinfo::fvideo_chip},
    {raw_id::kVideoChannels, &marl_hwinfo::video_channel},
    {raw_id::kHdVer, &marl_hwinfo::hd_ver},
    {raw_id::kVideoInterface, &marl_hwinfo::video_interface},
    {raw_id::kAnalogAudioMode, &marl_hwinfo::analog_audio_mode},
    {raw_id::kStoreInterface, &marl_hwinfo::store_interface},
    {raw_id::kAlarmMode, &marl_hwinfo::alarm_mode},
    {raw_id::kWirelessInterface, &marl_hwinfo::wireless_interface},
    {raw_id::kHdEncode, &marl_hwinfo::hd_encode},
    {raw_id::kNetInterface, &marl_hwinfo::net_interface},
    {raw_id::kIntellegAnalyse, &marl_hwinfo::intelleg_analyse},
};

void decode_raw_id() {
    for (const DecodedField& decoded : kDecoded) HWINFO.*decoded.field = raw_field(decoded.bits);
    if (HWINFO.video_channel == 0) HWINFO.video_channel = raw_id::kZeroChannels;
    const uint16_t channels = raw_field(raw_id::kAudioChannels);
    const auto mask = static_cast<uint16_t>(channels >= 16 ? 0xFFFF : (1U << channels) - 1);
    HWINFO.audio_in_channel = mask;
    HWINFO.audio_out_channel = mask;
}

bool holds(const catalogue::Condition& condition) {
    return condition.field == nullptr || (condition.values >> (HWINFO.*condition.field) & 1U) != 0;
}

const catalogue::ModelRule& rule_of_board(uint16_t code) {
    const auto rules = catalogue::model_rules();
    return *std::find_if(rules.begin(), rules.end(), [code](const catalogue::ModelRule& rule) {
        return rule.code == code && holds(rule.conditions[0]) && holds(rule.conditions[1]);
    });
}

void print_remark(catalogue::Remark remark) {
    if (remark == catalogue::Remark::BadHardwareVersion) {
        diag::out("[libmarl] Uncorrect hardware version!");
    } else if (remark == catalogue::Remark::UnsupportedHardwareVersion) {
        diag::error({module::kIdentity, "hwid_transform", 738}, "hardware version is not support\n");
    }
}

void name_model() {
    const uint16_t code = raw_field(raw_id::kProductCode);
    const catalogue::ModelRule& rule = rule_of_board(code);
    char model[MARL_MODEL_SIZE] = {};
    const bool in_file = (catalogue::kDefinedByFile >> code & 1U) != 0 && read_product_definition(model) == 0;
    if (!in_file) {
        copy_text(model, sizeof model, rule.model);
        print_remark(rule.remark);
    } else if (code == catalogue::kRecorderCode) {
        // The newline belongs to the names of these recorders, as far as it fits.
        char text[2 * MARL_MODEL_SIZE];
        snprintf(text, sizeof text, "QZ-%s\n", model);
        copy_text(model, sizeof model, text);
    }
    memcpy(HWINFO.product_model, model, sizeof model);
    HWINFO.product_category = rule.category;
}

}  // namespace

void hwid_transform() {
    // An ID taken from the boot environment is not asked for again, so it must survive a second call.
    if (hwid_loaded == 0) memset(hwid, 0, sizeof hwid);
    HWINFO = {};
    char text[128] = {};
    errno = 0;
    if (get_armboot_para(kKey, text, sizeof text) < 0) {
        diag::system_error("get hwid \n", errno);
    } else if (strchr(text, ':') == nullptr) {
        diag::line("[libmarl] no new hwid scheme!");
    } else {
        take_colon_separated(text);
        product_model_ptr = HWINFO.product_model;
        return;
    }
    take_raw_id();
    decode_raw_id();
    name_model();
    product_model_ptr = HWINFO.product_model;
}

int read_product_definition(char* buf) {
    if (buf == nullptr) return -1;
    memset(buf, 0, strnlen(buf, MARL_MODEL_SIZE));
    const Fd file(open_file(kDefinitionPath, O_RDONLY));
    if (!file.is_open()) {
        diag::err("open %s \n", kDefinitionPath);
        return -1;
    }
    LineReader reader(file.get());
    char line[128];
    while (reader.next(line, sizeof line)) {
        if (strstr(line, "Device") == nullptr) continue;
        const char* colon = strchr(line, ':');
        const char* first = colon != nullptr ? strchr(colon, '"') : nullptr;
        if (first == nullptr) continue;
        const char* last = strrchr(first, '"');
        if (last - first < 2) continue;
        copy_text(buf, MARL_MODEL_SIZE, {first + 1, static_cast<size_t>(last - first - 1)});
        return 0;
    }
    return -1;
}
