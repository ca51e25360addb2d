#include "libmarl/interfaces.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/proc_field.h"
#include "base/text.h"
#include "identity/catalogue.h"
#include "libmarl/hwinfo.h"
#include "libmarl/proc.h"

namespace {

using namespace marl;

constexpr const char* kDevices = "/proc/net/dev";
constexpr const char* kWireless = "/proc/net/wireless";
constexpr const char* kMacLink = "/proc/net/emac_link";
constexpr const char* kWirelessName = "eth2";
constexpr int kProbes = 10;

struct NameIndex {
    const char* name;
    int index;
};

constexpr NameIndex kIndices[] = {{"eth0", 0}, {"lo", 0}, {"eth2", 2}, {"ppp0", 3}, {"eth1", -1}};

enum LinkState { kUp = 0, kDown = -1, kUnknown = -2 };

void fill(NetDeviceEntry& entry, const char* name) {
    entry = {};
    entry.present = 1;
    entry.wireless = strcmp(name, kWirelessName) == 0 ? 1 : 0;
    copy_text(entry.name, sizeof entry.name, name);
}

// A list of names, each followed by "::", that takes them as long as they fit whole.
class NameList {
  public:
    NameList(char* text, size_t size) : text_(text), size_(size) { *text = '\0'; }

    void append(std::string_view name) {
        if (used_ + name.size() + 2 >= size_) return;
        copy_text(text_ + used_, size_ - used_, name);
        used_ += name.size();
        copy_text(text_ + used_, size_ - used_, "::");
        used_ += 2;
        ++count_;
    }
    int count() const { return count_; }

  private:
    char* text_;
    size_t size_;
    size_t used_ = 0;
    int count_ = 0;
};

// The name that a line of /proc/net/dev shows: from "eth", or else "ppp0", to the colon.
std::string_view name_in(const char* line) {
    const char* start = strstr(line, "eth");
    if (start == nullptr) start = strstr(line, "ppp0");
    const char* end = start != nullptr ? strchr(start, ':') : nullptr;
    return end != nullptr ? std::string_view(start, static_cast<size_t>(end - start)) : std::string_view();
}

// False when the list cannot be read to its end.
bool list_names(int fd, NameList& names) {
    LineReader reader(fd);
    char line[255];
    while (reader.next(line, sizeof line)) {
        const std::string_view name = name_in(line);
        if (!name.empty() && name != "eth1") names.append(name);
    }
    return !reader.failed();
}

// The driver's report on the ports of an interface, from the name on in each of its lines. Empty when there
// is none.
class LinkReport {
  public:
    bool gather(const char* name) {
        const Fd file(open_file(kMacLink, O_RDONLY));
        if (file.is_open() && gather(file.get(), name)) return used_ > 0;
        diag::err("open %s failed\n", kMacLink);
        return false;
    }

    // Up as soon as one of the first `ports` entries is, down when all of them are.
    int judge(int ports) const {
        constexpr std::string_view kKey = "Link State:";
        std::string_view rest(text_, used_);
        int down = 0;
        for (int port = 0; port < ports; ++port) {
            const size_t found = rest.find(kKey);
            if (found == std::string_view::npos) return kDown;
            rest.remove_prefix(found + kKey.size());
            const std::string_view state = rest_of(rest, 1);  // behind a blank
            if (state.starts_with("UP")) return kUp;
            if (state.starts_with("DOWN")) ++down;
        }
        return down == ports ? kDown : kUnknown;
    }

  private:
    static constexpr size_t kGatheredAtMost = 895;

    // False when the report cannot be read to its end.
    bool gather(int fd, const char* name) {
        LineReader reader(fd);
        char line[128];
        while (reader.next(line, sizeof line)) {
            const char* found = strstr(line, name);
            if (found != nullptr && used_ <= kGatheredAtMost) append(name, found);
        }
        return !reader.failed();
    }

    void append(const char* name, const char* line) {
        const int n = snprintf(text_ + used_, sizeof text_ - used_, "%s:%s", name, line);
        used_ = n < 0 ? used_ : std::min(used_ + static_cast<size_t>(n), sizeof text_ - 1);
    }

    char text_[1024] = {};
    size_t used_ = 0;
};

int ports_of_board() {
    constexpr int kVideoSdiBnc = 5;
    constexpr int kNetFiberAndCopper = 3;
    const bool wired_for_many = get_dvr_info(MARL_INFO_VIDEO_INTERFACE) == kVideoSdiBnc ||
                                get_dvr_info(MARL_INFO_NET_INTERFACE) == kNetFiberAndCopper;
    return wired_for_many && catalogue::is_model_of(catalogue::kMultiPort) ? 5 : 1;
}

int ethernet_link(const char* name) {
    LinkReport report;
    return report.gather(name) ? report.judge(ports_of_board()) : kUnknown;
}

int wireless_link(const char* name) {
    char raw[MARL_PROC_RAW_SIZE + 1] = {};
    const int result = get_proc_field(kWireless, name, ':', nullptr, raw);
    if (result < 0) return result;
    unsigned status = UINT_MAX;
    unsigned quality = 0;
    const bool is_whole = sscanf(raw, "%u %u", &status, &quality) == 2;
    if (!is_whole) {
        diag::out("[libmarl] raw=%s\n", raw);
        diag::err("sscanf");
    }
    // Without the quality the status still tells.
    if (status == 0) return kDown;
    return status == 1 || is_whole ? kUp : kUnknown;
}

}  // namespace

int NetGetEthIndex(const char* name, const char* caller) {
    if (name == nullptr) {
        diag::err("%s :pEthName==NULL", caller != nullptr ? caller : "");
        return -1;
    }
    for (const NameIndex& known : kIndices) {
        if (strcmp(name, known.name) == 0) return known.index;
    }
    diag::err("Not support device %s\n", name);
    return -1;
}

int NetGetEthDevice(NetDeviceEntry* entries, int capacity) {
    if (entries == nullptr || capacity > MARL_NET_DEVICES_MAX) return -1;
    if (capacity < 1) {
        diag::warn({module::kNet, "NetGetEthDevice"},
                   "The number of network card is more than 10, please check you code!");
        return -1;
    }
    int count = 0;
    fill(entries[0], "eth0");
    for (int n = 0; n < kProbes && count < capacity; ++n) {
        char name[MARL_NET_NAME_SIZE];
        snprintf(name, sizeof name, "eth%d", n);
        const int found = read_proc_field(kDevices, name, {}, {});
        if (found == 0) fill(entries[count++], name);
        if (found != kFieldUnreadable) continue;
        diag::err("open %s failed\n", kDevices);
        return -1;
    }
    return std::max(count, 1);
}

int NetGetEthName(char* buf, int len, int* count) {
    constexpr int kLeast = 10;
    if (buf == nullptr || count == nullptr) return -1;
    if (len < kLeast) {
        diag::error({module::kNet, "NetGetEthName"}, "EthNameLen=%d is too short(least is %d)!", len, kLeast);
        return -1;
    }
    const auto size = static_cast<size_t>(len);
    const Fd file(open_file(kDevices, O_RDONLY));
    if (!file.is_open()) {
        diag::error({module::kNet, "NetGetEthName"}, "ERR: open file %s failed!", kDevices);
        copy_text(buf, size, "eth0");
        *count = 1;
        return 0;
    }
    NameList names(buf, size);
    if (!list_names(file.get(), names)) {
        diag::error({module::kNet, "NetGetEthName"}, "ERR: open file %s failed!", kDevices);
        *buf = '\0';
        *count = 0;
        return -1;
    }
    if (names.count() == 0) names.append("eth0");
    *count = names.count();
    return 0;
}

int NetGetDeviceState(const char* name, NetDeviceStats* stats) {
    const int index = NetGetEthIndex(name, "NetGetDeviceState");
    if (index < 0) return index;
    char raw[MARL_PROC_RAW_SIZE + 1] = {};
    if (stats == nullptr || get_proc_field(kDevices, name, ':', nullptr, raw) < 0) return -1;
    unsigned long long rx_bytes = 0;
    unsigned long long rx_packets = 0;
    unsigned long long tx_bytes = 0;
    unsigned long long tx_packets = 0;
    if (sscanf(raw, "%llu %llu %*u %*u %*u %*u %*u %*u %llu %llu", &rx_bytes, &rx_packets, &tx_bytes,
               &tx_packets) != 4) {
        return -1;
    }
    *stats = {.tx_bytes = tx_bytes, .rx_bytes = rx_bytes, .tx_packets = tx_packets, .rx_packets = rx_packets};
    return index;
}

int mii_diag(const char* name) {
    const int index = NetGetEthIndex(name, "mii_diag");
    if (index < 0) return index;
    if (strcmp(name, "eth0") == 0) return ethernet_link(name);
    if (strcmp(name, kWirelessName) == 0) return wireless_link(name);
    return kUp;
}

int NetWirelessPresent(const char* name) { return get_proc_field(kWireless, name, ':', nullptr, nullptr); }
