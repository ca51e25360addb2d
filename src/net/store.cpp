#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <span>

#include "base/bytes.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/text.h"
#include "board/cmos.h"
#include "libmarl/cmos.h"
#include "libmarl/interfaces.h"
#include "libmarl/network.h"
#include "net/config_file.h"
#include "net/text_file.h"

namespace {

using namespace marl;

constexpr int kEth0 = 0;
constexpr int kTypes = 4;
constexpr int kAddressTypes = 3;  // the types that are addresses, which come first

struct Attribute {
    const char* key;
    const char* dhcp_key;  // null for what DHCP does not give
};

constexpr Attribute kAttributes[kTypes] = {
    {"HOSTIP", "DHCPIP"}, {"SUBMASK", "DHCPNETMASK"}, {"GATEWAYIP", "DHCPGATEWAY"}, {"PRIO", nullptr}};

// By interface index and type.
constexpr const char* kDefaults[][kTypes] = {{"192.168.1.108", "255.255.255.0", "192.168.1.1", "0"},
                                             {"192.168.2.108", "255.255.255.0", "192.168.2.1", "1"},
                                             {"192.168.2.108", "255.255.0.0", "192.168.2.1", "1"},
                                             {"192.168.2.108", "255.255.0.0", "192.168.2.1", "1"}};

// The CMOS copy of eth0's settings: the magic, and behind it the addresses in the order of their types.
constexpr uint16_t kMagic = 0x55AA;

constexpr uint8_t cmos_offset(int type) { return static_cast<uint8_t>(cmos::kNetworkCopy + 4 * type); }

bool is_type(int type) { return type >= 0 && type < kTypes; }

bool write_magic() {
    uint8_t magic[sizeof kMagic];
    store_le(magic, kMagic);
    return writeCMOS(cmos::kNetworkMagic, magic, sizeof magic) >= 0;
}

bool write_address(int type, const char* address) {
    const in_addr_t value = inet_addr(address);
    uint8_t bytes[sizeof value];
    memcpy(bytes, &value, sizeof value);
    return writeCMOS(cmos_offset(type), bytes, sizeof bytes) >= 0;
}

bool read_address(int type, uint32_t& address) {
    uint8_t bytes[sizeof address];
    if (!cmos::read(cmos_offset(type), bytes)) {
        diag::err("readComs\n");
        return false;
    }
    memcpy(&address, bytes, sizeof address);
    return true;
}

bool read_magic(uint16_t& magic) {
    uint8_t bytes[4];
    if (!cmos::read(cmos::kNetworkMagic, bytes)) return false;
    magic = load_le<uint16_t>(bytes);
    if (magic != kMagic) diag::out("[libmarl] var=%#x\n", magic);
    return true;
}

void initialise_copy() {
    write_magic();
    for (int type = 0; type < kAddressTypes; ++type) write_address(type, kDefaults[kEth0][type]);
}

// eth0 without files: the CMOS copy where it is valid, else the default that `out` holds already.
int eth0_fallback(int type, char* out) {
    if (type == NET_ATTR_PRIO) return 0;
    uint16_t magic = 0;
    if (!read_magic(magic)) return -1;
    if (magic == kMagic) {
        uint32_t address = 0;
        if (!read_address(type, address)) return -1;
        if (address != 0) NetIpToStr(address, out);
        return 0;
    }
    if (magic != 0) return -1;
    initialise_copy();
    return 0;
}

// The other interfaces without files: of the two default addresses, one that eth0 does not have.
int other_fallback(int index, int type, char* out, size_t size) {
    if (type != NET_ATTR_IP) return 0;
    uint16_t magic = 0;
    if (!read_magic(magic)) return -1;
    uint32_t eth0_address = 0;
    if (magic != kMagic || !read_address(NET_ATTR_IP, eth0_address)) return 0;
    const char* own = kDefaults[index][NET_ATTR_IP];
    const bool taken = eth0_address == 0 || eth0_address == inet_addr(own);
    copy_text(out, size, taken ? kDefaults[kEth0][NET_ATTR_IP] : own);
    return 0;
}

int fallback(int index, int type, char* out, size_t size) {
    char names[32];
    int count = 0;
    if (const int result = NetGetEthName(names, sizeof names, &count); result < 0) {
        diag::err("NetGetEthName\n");
        return result;
    }
    copy_text(out, size, kDefaults[index][type]);
    return index == kEth0 ? eth0_fallback(type, out) : other_fallback(index, type, out, size);
}

// Whether DHCP is in use, and has brought an address.
struct DhcpState {
    int in_use = 0;
    int has_address = 0;
};

DhcpState read_dhcp_state(LineReader& reader) {
    DhcpState state;
    char line[kConfigLineSize];
    while ((state.in_use == 0 || state.has_address == 0) && reader.next(line, sizeof line)) {
        if (strstr(line, "USEDHCP") != nullptr) sscanf(line, "USEDHCP = %d", &state.in_use);
        if (strstr(line, "DHCPHAVEIP") != nullptr) sscanf(line, "DHCPHAVEIP = %d", &state.has_address);
    }
    return state;
}

Reading read_dhcp(const char* path, int type, char* out, size_t size) {
    const Fd file(open_file(path, O_RDONLY));
    if (!file.is_open()) return reading_without_file(errno);
    LineReader reader(file.get());
    const DhcpState state = read_dhcp_state(reader);
    if (reader.failed()) return Reading::Failed;
    if (state.in_use <= 0) return Reading::Absent;
    if (state.has_address == 0) {
        diag::err("can not get IP by DHCP, use IP save in NETWORK\n");
        return Reading::Absent;
    }
    if (!is_type(type) || kAttributes[type].dhcp_key == nullptr) {
        diag::err("unkonw type\n");
        return Reading::Absent;
    }
    if (lseek(file.get(), 0, SEEK_SET) != 0) return Reading::Failed;
    return read_setting(file.get(), kAttributes[type].dhcp_key, out, size);
}

void clear_reset_mark() {
    const uint8_t clear = 0;
    writeCMOS(cmos::kResetMark, &clear, sizeof clear);
}

bool is_never_configured() {
    char main_path[MARL_NET_PATH_SIZE];
    char backup_path[MARL_NET_PATH_SIZE];
    main_config_path(kEth0, main_path, sizeof main_path);
    backup_config_path(kEth0, backup_path, sizeof backup_path);
    return access(main_path, F_OK) < 0 && access(backup_path, F_OK) < 0;
}

}  // namespace

int NetAttrKeyName(int type, char* buf, int len) {
    constexpr int kLeast = 10;
    if (buf == nullptr) return -1;
    if (len < kLeast) {
        diag::err("Len:%d is too short\n", len);
        return -1;
    }
    if (!is_type(type)) {
        diag::err("Type:%d error\n", type);
        return -1;
    }
    copy_text(buf, static_cast<size_t>(len), kAttributes[type].key);
    return 0;
}

int GetEthAttr(const char* name, int type, char* out, int outLen) {
    const int index = NetGetEthIndex(name, "GetEthAttr");
    if (index < 0) return index;
    if (out == nullptr || outLen < MARL_NET_VALUE_SIZE) {
        diag::err("str_length too short\n");
        return -1;
    }
    char path[MARL_NET_PATH_SIZE];
    if (const int result = NetConfigFileName(index, path, sizeof path); result < 0) return result;
    const auto size = static_cast<size_t>(outLen);
    const bool has_dhcp = index == 0 || index == 2;
    const Reading dhcp = has_dhcp ? read_dhcp(path, type, out, size) : Reading::Absent;
    if (dhcp == Reading::Found) return 0;
    char key[16];
    if (NetAttrKeyName(type, key, sizeof key) < 0) return -1;
    const Reading main = read_setting(path, key, out, size);
    if (main == Reading::Found) return 0;
    Reading backup = Reading::Absent;
    if (backup_config_path(index, path, sizeof path)) backup = read_setting(path, key, out, size);
    if (backup == Reading::Found) return 0;
    // A copy that cannot be read may well have the value, so the default may not stand in for it.
    const bool failed = dhcp == Reading::Failed || main == Reading::Failed || backup == Reading::Failed;
    if (!failed) return fallback(index, type, out, size);
    diag::err("open failed for %s", key);
    return -1;
}

int SaveEthAttr(const char* name, int type, const char* value) {
    const int index = NetGetEthIndex(name, "SaveEthAttr");
    if (index < 0) return index;
    if (value == nullptr) return 0;
    char path[MARL_NET_PATH_SIZE];
    if (const int result = NetConfigFileName(index, path, sizeof path); result < 0) return result;
    return SaveEthAttrByIndex(index, path, type, value);
}

int SaveEthAttrByIndex(int index, char* pathBuf, int type, const char* value) {
    char key[16];
    if (pathBuf == nullptr || value == nullptr || NetAttrKeyName(type, key, sizeof key) < 0) return -1;
    if (!is_word(value)) return -1;
    NetConfigWriteKey(pathBuf, key, value);
    if (!backup_config_path(index, pathBuf, MARL_NET_PATH_SIZE)) return -1;
    NetConfigWriteKey(pathBuf, key, value);
    if (index != kEth0 || type >= kAddressTypes) return 0;
    return write_magic() && write_address(type, value) ? 0 : -1;
}

int NetGetDhcpAttr(const char* path, int type, char* out, int outLen) {
    if (path == nullptr || out == nullptr || outLen < MARL_NET_VALUE_SIZE) {
        diag::err("str_length is too short\n");
        return -1;
    }
    return read_dhcp(path, type, out, static_cast<size_t>(outLen)) == Reading::Found ? 0 : -1;
}

int NetConfigBeenReset() {
    constexpr diag::Site kSite{module::kNet, "NetConfigBeenReset"};
    uint8_t mark = 0;
    if (!cmos::read(cmos::kResetMark, {&mark, 1})) {
        diag::err("ERR: Get CMOS Failed\n");
        return -1;
    }
    if (mark == 0) return 0;
    if (mark == cmos::kFactoryReset) {
        clear_reset_mark();
        return 1;
    }
    diag::warn(kSite, "&&: ****** cmos no electric or device first burn********");
    clear_reset_mark();
    if (is_never_configured()) {
        diag::line("[libmarl] [LIBMARL]: May be the first burn flash");
        return 1;
    }
    diag::warn(kSite, "[LIBMARL]: CMOS has no electric");
    return 0;
}

int NetGetDefaultEth(char* out) {
    if (out == nullptr) return -1;
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    const int count = NetGetEthDevice(entries, MARL_NET_DEVICES_MAX);
    if (count < 1) {
        diag::err("NetGetEthName\n");
        return -1;
    }
    copy_text(out, MARL_NET_NAME_SIZE, "eth0");
    for (const NetDeviceEntry& each : std::span(entries, static_cast<size_t>(count))) {
        if (strcmp(each.name, "eth0") != 0) continue;
        char value[20] = {};
        if (GetEthAttr("eth0", NET_ATTR_PRIO, value, sizeof value) < 0) {
            diag::err("get ip error\n");
            return -1;
        }
        if (decimal(value) == 1 && count >= 2) copy_text(out, MARL_NET_NAME_SIZE, entries[1].name);
    }
    return 0;
}

int NetSetDefaultEth(const char* name) {
    if (NetGetEthIndex(name, "NetSetDefaultEth") < 0) return -1;
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    const int count = NetGetEthDevice(entries, MARL_NET_DEVICES_MAX);
    if (count < 1) {
        diag::err("NetGetEthName\n");
        return -1;
    }
    for (const NetDeviceEntry& each : std::span(entries, static_cast<size_t>(count))) {
        const int index = NetGetEthIndex(each.name, "NetSetDefaultEth");
        if (index < 0) continue;
        char path[MARL_NET_PATH_SIZE];
        if (const int result = NetConfigFileName(index, path, sizeof path); result < 0) return result;
        const char* priority = strcmp(each.name, name) == 0 ? "0" : "1";
        if (SaveEthAttrByIndex(index, path, NET_ATTR_PRIO, priority) < 0) return -1;
    }
    return 0;
}

void NetIpToStr(uint32_t addr, char* out) {
    if (out == nullptr) return;
    uint8_t octets[4];
    store_le(octets, addr);
    snprintf(out, MARL_NET_VALUE_SIZE, "%d.%d.%d.%d", octets[0], octets[1], octets[2], octets[3]);
}
