// Text files: the network settings, the resolver's, the host's name, and what the kernel tells under /proc.
#include <map>

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
constexpr const char* kResolver = "/mnt/mtd/Config/resolv.conf";
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

// Where the partitions of a table begin, and the last ends: a row for each number, in whatever order and the first one
// counts, up to the first number without. Nothing where such a row has no size, or the first no sectors.
std::vector<uint32_t> starts_in(const std::string& table) {
    std::map<unsigned long, std::string> rows;
    for (bool at_start = true; const std::string& piece : pieces(table, 127)) {
        const std::string row = piece.substr(std::min(piece.find_first_not_of(" \t"), piece.size()));
        const size_t colon = row.find_first_not_of("0123456789", 3);
        const bool is_number = row.starts_with("mtd") && colon > 3 && colon < row.size();
        const bool is_row = at_start && is_number && row[colon] == ':';
        if (is_row) rows.try_emplace(strtoul(row.c_str() + 3, nullptr, 10), row.substr(colon + 1));
        at_start = piece.ends_with('\n');
    }
    std::vector<uint32_t> starts = {0x2000000};
    for (unsigned number = 0; number < 15 && rows.contains(number); ++number) {
        unsigned size = 0, sector = 1;
        const int given = sscanf(rows[number].c_str(), "%x %x", &size, &sector);
        const bool is_whole = given == 2 && sector > 0;
        if (given < 1 || (number == 0 && !is_whole) || size > UINT32_MAX - starts.back()) return {};
        starts.push_back(starts.back() + size);
    }
    return starts.size() > 1 ? starts : std::vector<uint32_t>();
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
    memory::put("/dev/misc/rtc", "", memory::Kind::Device);
    memory::answers.write = [](const void*, size_t) -> ssize_t { abort(); };
    if (!is_plain_word(value)) require(SaveEthAttr("eth0", NET_ATTR_IP, value.c_str()) == -1);
    const Pieces old = pieces(text, 31);
    const std::string setting = key + " = " + value + "\n";
    const bool is_setting = is_plain_word(key) && key.find('=') == key.npos && is_plain_word(value);
    const std::string wanted = is_setting ? rewritten(old, key, setting) : "";
    const bool fits = is_setting && wanted.size() < 4096;
    require(NetConfigWriteKey(kNetwork, key.c_str(), value.c_str()) == (fits ? 0 : -1));
    require(memory::text_of(kNetwork) == (fits ? wanted : text));
    const bool whole = std::all_of(old.begin(), old.end(), [](auto& each) { return each.ends_with('\n'); });
    if (!fits || setting.size() >= 80 || !whole) return;
    Buffer out(1 + value.size() / 2);
    require(marl::read_setting(kNetwork, key.c_str(), out.data(), out.size()) == marl::Reading::Found);
    require(text_in(out) == value.substr(0, out.size() - 1));
}

TARGET(resolver) {
    const std::string servers[] = {input.line(), input.line()}, text = input.rest();
    memory::put(kResolver, text);
    Buffer found[] = {Buffer(16), Buffer(16)};
    NetGetDNS(found[0].data(), 16, found[1].data(), 16);
    const bool fits = std::all_of(servers, servers + 2, [](const std::string& server) {
        return server.empty() || (is_plain_word(server) && server.size() <= 51);
    });
    require(NetSetDNS(servers[0].c_str(), servers[1].c_str()) == (fits ? 0 : -1));
    if (!fits) return require(memory::text_of(kResolver) == text);
    require(NetGetDNS(found[0].data(), 16, found[1].data(), 16) == 0);
    for (const int i : {0, 1}) require(servers[i].empty() || text_in(found[i]) == servers[i].substr(0, 15));
}

TARGET(host_name) {
    static std::string name;
    name = input.rest().c_str();
    const bool is_name =
        !name.empty() && name[0] != '-' && std::all_of(name.begin(), name.end(), [](char each) {
            return isalnum(static_cast<uint8_t>(each)) || strchr("-._", each) != nullptr;
        });
    memory::answers.command = [](std::string_view command) {
        require(command == ("hostname " + name).substr(0, 63));
        name = "set";
    };
    require(NetSetHostName(name.c_str()) == (is_name ? 0 : -1) && (name == "set") == is_name);
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

// A name may hold anything, blanks and parentheses included; its process is the child of none, of the first or of one
// that is gone.
TARGET(process) {
    const std::string name = "(" + input.line().substr(0, 100) + ")";
    const int parent = input.byte() % 3, group = input.byte();
    const std::string numbers = std::to_string(parent) + " " + std::to_string(group);
    memory::put("/proc/7/stat", "7 " + name + " R " + numbers + " 9\n");
    memory::put("/proc/1/stat", "1 init S 0 1\n");
    sentrel::ProcStatInfo process = {};
    require(sentrel::get_proc_stat(7, &process, 0) == 0 && process.command == name.substr(0, 31));
    require(process.state == 'R' && process.parent == parent && process.process_group == group);
    require(sentrel::get_proc_stat(7, &process, 9) == (parent == 2 ? -1 : 0));
    if (parent == 1) require(process.command == std::string("init") && process.process_group == 1);
}

TARGET(partitions) {
    const std::string table = input.rest();
    memory::put("/proc/mtd", table);
    marl::g_partitions = {};
    const std::vector<uint32_t> wanted = starts_in(table);
    require(flash_init() == static_cast<int>(wanted.size()) - 1);
    const auto& [number, sector, starts] = marl::g_partitions;
    require(number == static_cast<int>(wanted.size()) - 1 || (wanted.empty() && number == 0));
    require(std::equal(wanted.begin(), wanted.end(), starts) && (sector > 0) == !wanted.empty());
}
