// Text files: the network settings, the resolver's, the host's name, and what the kernel tells under /proc.
#include "daemon/proc_stat.h"
#include "flash/partitions.h"
#include "libmarl/flash.h"
#include "libmarl/hwinfo.h"
#include "libmarl/interfaces.h"
#include "libmarl/net_identity.h"
#include "libmarl/network.h"
#include "libmarl/proc.h"
#include "libmarl/system.h"
#include "net/config_file.h"
#include "target.h"

namespace {

constexpr const char* kNetwork = "/mnt/mtd/Config/network";
constexpr const char* kBlanks = " \t\n\v\f\r";

using Pieces = std::vector<std::string>;

// As fgets cuts a file, seen as C strings.
Pieces pieces(std::string_view text, size_t most) {
    Pieces list;
    while (!text.empty()) {
        const size_t newline = text.find('\n');
        const size_t size = std::min({most, text.size(), newline != text.npos ? newline + 1 : most});
        list.push_back(std::string(text.substr(0, size)).c_str());
        text.remove_prefix(size);
    }
    return list;
}

bool is_plain_word(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char each) {
        return static_cast<uint8_t>(each) > ' ' && each != 0x7F;
    });
}

// What a save has to leave of a file.
std::string rewritten(const Pieces& old, const std::string& key, const std::string& setting) {
    std::string text;
    bool replaced = false;
    for (const std::string& piece : old) {
        const bool is_it = piece.find(key) != piece.npos;
        text += is_it ? setting : piece;
        replaced = replaced || is_it;
    }
    if (replaced) return text;
    return text + (text.empty() || text.ends_with('\n') ? "" : "\n") + setting;
}

}  // namespace

TARGET(network) {
    const std::string key = input.line();
    const std::string value = input.line();
    const std::string text = input.rest();
    memory::put(kNetwork, text);
    for (int type = NET_ATTR_IP; type <= NET_ATTR_PRIO; ++type) {
        Buffer out(MARL_NET_VALUE_SIZE);
        GetEthAttr("eth0", type, out.data(), MARL_NET_VALUE_SIZE);
        require(text_in(out).size() < out.size());
    }
    const Pieces old = pieces(text, 31);
    const std::string setting = key + " = " + value + "\n";
    const bool is_setting = is_plain_word(key) && key.find('=') == key.npos && is_plain_word(value);
    const std::string wanted = is_setting ? rewritten(old, key, setting) : "";
    const bool fits = is_setting && wanted.size() < 4096;
    require(NetConfigWriteKey(kNetwork, key.c_str(), value.c_str()) == (fits ? 0 : -1));
    require(memory::text_of(kNetwork) == (fits ? wanted : text));
    const bool of_lines =
        std::all_of(old.begin(), old.end(), [](auto& each) { return each.ends_with('\n'); });
    if (!fits || setting.size() >= 80 || !of_lines) return;
    Buffer out(1 + value.size() / 2);
    require(marl::read_setting(kNetwork, key.c_str(), out.data(), out.size()) == marl::Reading::Found);
    require(text_in(out) == value.substr(0, out.size() - 1));
}

TARGET(resolver) {
    const std::string servers[] = {input.line(), input.line()};
    memory::put("/mnt/mtd/Config/resolv.conf", input.rest());
    Buffer found[] = {Buffer(16), Buffer(16)};
    NetGetDNS(found[0].data(), 16, found[1].data(), 16);
    if (NetSetDNS(servers[0].c_str(), servers[1].c_str()) != 0) return;
    require(NetGetDNS(found[0].data(), 16, found[1].data(), 16) == 0);
    for (const int i : {0, 1}) require(servers[i].empty() || text_in(found[i]) == servers[i].substr(0, 15));
}

TARGET(host_name) {
    memory::answers.command = [](std::string_view command) {
        require(command.starts_with("hostname ") && command.size() < 64 && command[9] != '-');
        require(std::all_of(command.begin() + 9, command.end(), [](char each) {
            return isalnum(static_cast<uint8_t>(each)) || each == '-' || each == '.';
        }));
    };
    NetSetHostName(input.rest().c_str());
}

TARGET(proc_field) {
    const std::string key = input.line();
    const std::string text = input.rest();
    memory::put("/proc/stat", text);
    Buffer token(MARL_PROC_TOKEN_SIZE, '?'), raw(MARL_PROC_RAW_SIZE, '?');
    const int result = get_proc_field("/proc/stat", key.c_str(), ':', token.data(), raw.data());
    const Pieces lines = pieces(text, 127);
    const auto found =
        std::find_if(lines.begin(), lines.end(), [&](auto& each) { return each.find(key) != each.npos; });
    require(result == (key.size() >= 128 ? -22 : found != lines.end() ? 0 : -1));
    if (result != 0) return;
    const std::string value = found->substr(std::min(found->size(), found->find(key) + key.size() + 1));
    require(std::string(raw.begin(), raw.end()) == value + std::string(raw.size() - value.size(), '?'));
    const size_t start = std::min(value.find_first_not_of(kBlanks), value.size());
    const size_t end = std::min(value.find_first_of(kBlanks, start), value.size());
    require(text_in(token) == value.substr(start, std::min<size_t>(end - start, 15)));
}

TARGET(interfaces) {
    const std::string text = input.rest();
    for (const char* path : {"/proc/net/dev", "/proc/net/wireless", "/proc/net/emac_link"})
        memory::put(path, text);
    Buffer names(10 + text.size() % 30, '?');
    int count = -1;
    require(NetGetEthName(names.data(), static_cast<int>(names.size()), &count) == 0);
    const std::string list = text_in(names);
    require(count >= 0 && list.size() < names.size() && (count == 0 || list.ends_with("::")));
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    require(NetGetEthDevice(entries, MARL_NET_DEVICES_MAX) >= 1 && entries[0].present == 1);
    NetDeviceStats stats;
    NetGetDeviceState("eth0", &stats);
    HWINFO.video_interface = text.size() % 2 == 0 ? 5 : 0;  // with it, this model has many ports
    memcpy(HWINFO.product_model, "IPC-KM1", sizeof "IPC-KM1");
    for (const char* name : {"eth0", "eth2"}) require(mii_diag(name) <= 0 && mii_diag(name) >= -2);
}

TARGET(statistics) {
    const std::string text = input.rest();
    for (const char* path : {"/proc/meminfo", "/proc/stat", "/proc/7/stat"}) memory::put(path, text);
    MemInfo info;
    get_mem_info(&info);
    CpuStat processor;
    for (int i = 0; i < 2; ++i) require(get_cpu_stat(&processor) == 0 && processor.usage <= 100);
    sentrel::ProcStatInfo process = {};
    if (sentrel::get_proc_stat(7, &process, 3) != 0) return;
    require(ends(process.command) && process.command[0] != '\0');
}

TARGET(partitions) {
    memory::put("/proc/mtd", input.rest());
    marl::g_partitions = {};
    const int count = flash_init();
    const auto& [number, sector, starts] = marl::g_partitions;
    require(number == std::max(count, 0) && number <= marl::kMaxPartitions && (sector > 0) == (number > 0));
    require(std::is_sorted(starts, starts + number + (number > 0)));
}
