// The boot environment, and what tells which board this is.
#include <cstddef>

#include "base/bytes.h"
#include "base/crc32.h"
#include "libmarl/env.h"
#include "libmarl/hwid.h"
#include "libmarl/hwinfo.h"
#include "libmarl/init.h"
#include "libmarl/proc.h"
#include "target.h"

namespace {

using Variables = std::vector<std::string>;

constexpr size_t kImageSize = 0x20000;
constexpr size_t kStart = 4;  // behind the checksum
constexpr const char* kBootParameters = "/proc/qorzo/bootpara";

uint8_t* g_image = nullptr;  // the library's own, which it reads once
size_t g_used = kImageSize;
int g_saves = 0;

void put_environment(std::string_view list, char behind = '\0') {
    memory::put("/dev/mtd/1", "", memory::Kind::Device);
    memory::answers.read = [](void* image, size_t size) {
        g_image = static_cast<uint8_t*>(image);
        return static_cast<ssize_t>(size);
    };
    memory::answers.write = [](const void* image, size_t size) {
        require(image == g_image && size == kImageSize);
        require(marl::load_le<uint32_t>(g_image) == marl::crc32({g_image + kStart, 0x3FFC}));
        ++g_saves;
        return static_cast<ssize_t>(size);
    };
    memory::answers.control = [](unsigned long, void*) { return 0; };
    require(env_init() == 0);
    memset(g_image, behind, behind != '\0' ? kImageSize : g_used);
    memcpy(g_image + kStart, list.data(), list.size());
    g_used = behind != '\0' ? kImageSize : kStart + list.size() + 300;
    g_saves = 0;
}

// Plainly: texts that end in a NUL, until one is empty or the image ends.
Variables variables() {
    Variables list;
    for (size_t at = kStart; at < kImageSize && g_image[at] != 0; at += list.back().size() + 1) {
        const auto* text = reinterpret_cast<const char*>(g_image + at);
        list.emplace_back(text, strnlen(text, kImageSize - at));
    }
    return list;
}

Variables::iterator find(Variables& list, const std::string& name) {
    const std::string start = name.substr(0, name.find('=')) + "=";
    return std::find_if(list.begin(), list.end(), [&](auto& each) { return each.starts_with(start); });
}

void require_found(Variables list, const std::string& name, size_t size) {
    Buffer value(size, '?');
    const auto found = find(list, name);
    const int result = get_armboot_para(name.c_str(), value.data(), static_cast<uint32_t>(size));
    require(result == (found != list.end() ? 0 : -1));
    if (result == 0) require(text_in(value) == found->substr(found->find('=') + 1, size - 1));
}

// The first variable of the name goes, the new one comes last, the others stay as they are.
Variables expected(Variables list, const std::string& name, const std::string& value) {
    if (const auto old = find(list, name); old != list.end()) list.erase(old);
    size_t size = name.size() + value.size() + 3;
    for (const std::string& each : list) size += each.size() + 1;
    if (size <= kImageSize - kStart) list.push_back(name + "=" + value);
    return list;
}

void require_sound_identity() {
    hwid_loaded = 0;
    hwid_transform();
    require(HWINFO.cpu_count <= MARL_CPU_MAX && product_type >= -1 && product_type < MARL_MODEL_ROWS);
    require(ends(HWINFO.product_model) && check_product_model(HWINFO.product_model) == 1);
    for (uint32_t index = 0; index < MARL_INFO_COUNT; ++index) require(get_dvr_info(index) >= -1);
}

}  // namespace

TARGET(environment) {
    const std::string how = input.line();
    const std::string name = input.line().c_str();  // as a caller gives them, without NULs
    const std::string value = input.line().c_str();
    put_environment(input.rest(), how == "erased" ? '\xFF' : '\0');
    const Variables before = variables();
    require_found(before, name, 1 + value.size());
    if (name.size() % 4 > 1 && name.size() < 20) return;  // a save takes long: its checksum is over 16 KiB
    const bool is_name = !name.empty() && name.size() <= 23 && name.find('=') == name.npos;
    const bool is_settable = is_name && value.size() <= 255;
    const int result = how == "pair" && is_name ? set_armboot_para_kv((name + "=" + value).c_str())
                                                : __set_armboot_para(name.c_str(), value.c_str());
    require(result == (is_settable ? 0 : -1));
    const Variables after = is_settable ? expected(before, name, value) : before;
    require(variables() == after);
    require_found(after, name, MARL_ENV_VALUE_MAX + 1);
    require(g_saves == (is_settable && !after.empty() && after.back() == name + "=" + value));
}

TARGET(hwid) {
    const std::string text = input.rest().c_str();
    put_environment("HWID=" + text);
    require_sound_identity();
    print_system_info();
    // Packed, and so many digits that the last 16 are the low half.
    if (text.size() < 16 || text.size() > 27 || text.find_first_not_of("0123456789abcdef") != text.npos)
        return;
    const size_t leading = text.size() - 16;
    require(marl::load_le<uint64_t>(hwid) == strtoull(text.c_str() + leading, nullptr, 16));
    require(marl::load_le<uint64_t>(hwid + 8) ==
            strtoull(("0" + text.substr(0, leading)).c_str(), nullptr, 16));
}

TARGET(sections) {
    put_environment(input.rest());
    HWINFO_SECTIONS = {};
    hwid_loaded = 0;
    require(get_hwid_info() == 0 && hwid_absent <= 1);
    require(HWINFO_SECTIONS.product_type == 0xFFFF || HWINFO_SECTIONS.product_type < MARL_MODEL_ROWS);
    char value[128];
    const bool is_given = get_armboot_para("[product_type]", value, sizeof value) == 0;
    require(check_product_type("IPC") == (is_given ? strstr(value, "IPC") != nullptr : -1));
}

TARGET(definition) {
    const std::string text = input.rest();
    memory::put("/mnt/custom/ProductDefinition", text);
    memory::put(kBootParameters, "HWID:9\n");  // a recorder
    put_environment("");
    require_sound_identity();
    Buffer model(MARL_MODEL_SIZE, '?');
    const int result = read_product_definition(model.data());
    require(text_in(model).size() < model.size() && text.find(text_in(model)) != text.npos);
    require(result == (text_in(model).empty() ? -1 : 0));
    if (result == 0) require(("QZ-" + text_in(model) + "\n").substr(0, 31) == HWINFO.product_model);
}

TARGET(boot_parameters) {
    memory::put(kBootParameters, input.rest());
    put_environment("");
    require_sound_identity();
    const int keyboard = get_keyboard_bootpara();
    require(keyboard >= -99 && keyboard <= 999);
    char token[MARL_PROC_TOKEN_SIZE];
    if (get_proc_field(kBootParameters, "HWID", ':', token, nullptr) < 0 || strlen(token) == 15) return;
    require(marl::load_le<uint64_t>(hwid) == strtoull(token, nullptr, 16));
}
