// Which board this is.
#include <libmarl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

struct Field {
    const char* name;
    uint16_t marl_hwinfo::*value;
};

constexpr Field kFields[] = {
    {"hwid_ver", &marl_hwinfo::hwid_ver},
    {"product_category", &marl_hwinfo::product_category},
    {"product_sub_category", &marl_hwinfo::product_sub_category},
    {"fvideo_chip", &marl_hwinfo::fvideo_chip},
    {"dsp_chip", &marl_hwinfo::dsp_chip},
    {"bvideo_chip", &marl_hwinfo::bvideo_chip},
    {"video_channel", &marl_hwinfo::video_channel},
    {"analog_audio_mode", &marl_hwinfo::analog_audio_mode},
    {"audio_in_channel", &marl_hwinfo::audio_in_channel},
    {"audio_out_channel", &marl_hwinfo::audio_out_channel},
    {"store_interface", &marl_hwinfo::store_interface},
    {"cpu_count", &marl_hwinfo::cpu_count},
    {"alarm_mode", &marl_hwinfo::alarm_mode},
    {"wireless_interface", &marl_hwinfo::wireless_interface},
    {"hd_encode", &marl_hwinfo::hd_encode},
    {"video_interface", &marl_hwinfo::video_interface},
    {"net_interface", &marl_hwinfo::net_interface},
    {"intelleg_analyse", &marl_hwinfo::intelleg_analyse},
    {"hd_ver", &marl_hwinfo::hd_ver},
    {"ext_info", &marl_hwinfo::ext_info},
};

// The sources in the order in which the library asks them; null when none knew the board.
const char* find_source() {
    constexpr const char* kName = "HWID";
    char text[256] = "";
    const bool in_environment = get_armboot_para(kName, text, sizeof text) == 0;
    if (in_environment && strchr(text, ':') != nullptr) return "boot environment, colon-separated";
    if (get_proc_field("/proc/qorzo/bootpara", kName, ':', nullptr, nullptr) == 0) return "boot parameter";
    if (in_environment) return "boot environment";
    const bool is_known = std::any_of(hwid, hwid + MARL_HWID_SIZE, [](uint8_t byte) { return byte != 0; });
    return is_known ? "record in flash" : nullptr;
}

void show_clocks() {
    const int count = std::min<int>(HWINFO.cpu_count, MARL_CPU_MAX);
    results::begin_list("cpu_clock_mhz");
    for (int i = 0; i < count; ++i) results::field(nullptr, HWINFO.cpu_clock_freq[i]);
    results::end_list();
}

}  // namespace

Exit id(const Request&) {
    char model[MARL_MODEL_SIZE + 1] = "", raw[2 * MARL_HWID_SIZE + 1] = "", device[64] = "";
    memcpy(model, HWINFO.product_model, MARL_MODEL_SIZE);
    for (size_t i = 0; i < MARL_HWID_SIZE; ++i) snprintf(raw + 2 * i, 3, "%02x", hwid[i]);
    const bool has_device = get_device_id(device, sizeof device) == 0;
    results::field("model", model);
    results::field("type", get_product_type());
    results::field("identified_by", find_source());
    results::flag("is_settled", hwid_retry() == 0);
    results::field("device_id", has_device ? device : nullptr);
    results::field("raw_id", raw);
    results::field("product_code", product_code);
    results::field("keyboard_type", keyboard_type);
    for (const Field& field : kFields) results::field(field.name, HWINFO.*field.value);
    show_clocks();
    return kDone;
}

}  // namespace tool
