// Summaries of the system and of its sub-modules.
#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/text.h"
#include "board/dm365.h"
#include "identity/catalogue.h"
#include "libmarl/env.h"
#include "libmarl/hwinfo.h"
#include "libmarl/net_identity.h"
#include "libmarl/power_3g.h"
#include "libmarl/system.h"
#include "libmarl/watchdog.h"
#include "modem/state.h"

static_assert(offsetof(SystemInfo, id) == 32 && offsetof(SystemInfo, type) == 64);
static_assert(offsetof(SystemInfo, hw_version) == 96 && offsetof(SystemInfo, appauto) == 104);
static_assert(offsetof(SystemInfo, bandWidth) == 144 && sizeof(SystemInfo) == 148);
static_assert(offsetof(SubModuleInfo, version) == 32 && offsetof(SubModuleInfo, second_version) == 48);
static_assert(offsetof(SubModuleInfo, status) == 64 && sizeof(SubModuleInfo) == 256);

namespace {

using namespace marl;

constexpr const char* kNoDeviceId = "000000000000000000";

constexpr const char* kChips[] = {"unkown", "hi3510", "hi3511", "dm6441",
                                  "dm6446", "dm365",  "dm368",  "dm6448"};

struct Bandwidth {
    int arm_mhz;
    int32_t bandwidth;
};

constexpr Bandwidth kBandwidths[] = {{216, 12}, {270, 16}, {297, 24}, {300, 24},
                                     {351, 24}, {432, 32}, {486, 32}};

const char* chip_name() {
    const int chip = get_dvr_info(MARL_INFO_DSP_CHIP);
    return kChips[chip >= 0 && chip < static_cast<int>(std::size(kChips)) ? chip : 0];
}

bool is_told_apart(int type) {
    constexpr int kTypes[] = {2, 3, 6, 17, 19, 25};
    if (type == 7) return get_dvr_info(MARL_INFO_HD_VER) != 1 || get_dvr_info(MARL_INFO_FVIDEO_CHIP) != 1;
    return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

void fill_bandwidth(SystemInfo& info) {
    const int rate = get_arm_rate();
    const auto* known = std::find_if(std::begin(kBandwidths), std::end(kBandwidths),
                                     [rate](const Bandwidth& one) { return one.arm_mhz == rate; });
    if (known == std::end(kBandwidths)) {
        diag::error({module::kSystem, "getSystemInfo"}, "get bandWidth error\n");
    } else {
        info.bandWidth = known->bandwidth;
    }
}

constexpr const char* kCoprocessorDevice = "/dev/dm6480";
constexpr unsigned long kCoprocessorStatus = 0xC028A9F4;
constexpr unsigned long kFpgaVersion = 0xC0049918;

// The traffic models, and the device behind which their FPGA is; the first has none.
struct TrafficBoard {
    const char* model;
    const char* fpga_device;
};

constexpr TrafficBoard kTrafficBoards[] = {{"TRV-A1", nullptr},           {"TRV-A2", "/dev/ad9979_dev"},
                                           {"TRV-A3", "/dev/ad9920_dev"}, {"TRV-A4", "/dev/ad9979_dev"},
                                           {"TRV-A5", "/dev/ad9979_dev"}, {"TRV-A6", "/dev/ad9920_dev"}};

const TrafficBoard* traffic_board() {
    if (get_dvr_info(MARL_INFO_DSP_CHIP) != catalogue::kMainChipDm368) return nullptr;
    for (const TrafficBoard& board : kTrafficBoards) {
        if (check_product_model(board.model) == 1) return &board;
    }
    return nullptr;
}

void list_fpga(const char* path, SubModuleInfo& module) {
    copy_text(module.name, sizeof module.name, "FPGA");
    module.status = 1;
    const Fd device(open_file(path, O_RDONLY));
    if (!device.is_open()) {
        diag::error({module::kSystem, "getSubModules"}, "open /dev/ad_dev failed\n");
        return;
    }
    uint8_t version[4] = {};  // the driver answers with the first byte of a word
    const int result = control(device.get(), kFpgaVersion, version);
    if (result < 0) {
        diag::error({module::kSystem, "getSubModules"}, "get fpga version error\n");
        return;
    }
    module.status = static_cast<uint8_t>(result);
    snprintf(module.second_version, sizeof module.second_version, "1.%d", version[0]);
}

bool list_coprocessor(SubModuleInfo& module) {
    const Fd device(open_file(kCoprocessorDevice, O_RDONLY));
    if (!device.is_open()) {
        diag::error({module::kSystem, "getSubModules"}, "open /dev/dm6480 failed\n");
        module.status = 1;
        return false;
    }
    module.status = static_cast<uint8_t>(control(device.get(), kCoprocessorStatus, 0UL));
    copy_text(module.name, sizeof module.name, "dm648");
    snprintf(module.version, sizeof module.version, "1.%d", get_dvr_info(MARL_INFO_HD_VER));
    return true;
}

int list_traffic_modules(const TrafficBoard& board, SubModuleInfo* modules, int& count) {
    count = 1;
    if (!list_coprocessor(modules[0])) return 0;
    if (board.fpga_device == nullptr) return 0;
    count = 2;
    list_fpga(board.fpga_device, modules[1]);
    return 0;
}

// The version record that the co-processor monitor keeps: the first 64 bytes of an entry.
int list_recorded_module(SubModuleInfo& module, int& count) {
    dm365::VersionRecord record{};
    {
        const Fd file(open_file(dm365::kVersionPath, O_RDONLY));
        if (!file.is_open()) return -1;
        count = read_whole(file.get(), &record, sizeof record) ? 1 : 0;
    }
    copy_text(module.name, sizeof module.name, field_text(record.name, sizeof record.name));
    copy_text(module.version, sizeof module.version, field_text(record.version, sizeof record.version));
    copy_text(module.second_version, sizeof module.second_version,
              field_text(record.second_version, sizeof record.second_version));
    diag::out("[libmarl] %s:%s\n%s\n%s\n", "getSubModules", module.name, module.second_version,
              module.version);
    return 0;
}

}  // namespace

int get_device_id(char* buf, int len) {
    if (buf == nullptr || len < 1) return -1;
    char id[MARL_ENV_VALUE_MAX + 1];
    if (get_armboot_para("ID", id, sizeof id) == 0 && strcmp(id, kNoDeviceId) != 0) {
        copy_text(buf, static_cast<size_t>(len), id);
        diag::out("[libmarl] @@@@ buf = %s\n", buf);
        return 0;
    }
    return NetGetMAC("eth0", buf, len) < 0 ? -1 : 0;
}

int getSystemInfo(SystemInfo* info) {
    if (info == nullptr) return -1;
    g_queried_product_type = get_product_type();
    diag::out("\033[0;32;32m[libmarl] At the start of getSystemInfo\n\033[m");
    copy_text(info->chip, sizeof info->chip, chip_name());
    copy_text(info->type, sizeof info->type, field_text(HWINFO.product_model, sizeof HWINFO.product_model));
    snprintf(info->hw_version, sizeof info->hw_version, "1.%d0", power_3g_hw_version() & 7);
    info->appauto = static_cast<uint8_t>(get_appauto());
    info->type_flag = is_told_apart(g_queried_product_type) ? 0 : 1;
    info->no_storage = get_dvr_info(MARL_INFO_STORE_INTERFACE) == 0 ? 1 : 0;
    fill_bandwidth(*info);
    return get_device_id(info->id, sizeof info->id);
}

int getSubModules(SubModuleInfo* modules, int* count) {
    const TrafficBoard* board = traffic_board();
    if (modules == nullptr && board != nullptr) diag::line("modules is null point");
    if (modules == nullptr || count == nullptr) return -1;
    return board != nullptr ? list_traffic_modules(*board, modules, *count)
                            : list_recorded_module(modules[0], *count);
}
