// Settings of the running interfaces, and the operations that set, save and announce.
#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/text.h"
#include "libmarl/interfaces.h"
#include "libmarl/net_live.h"
#include "libmarl/network.h"
#include "net/text_file.h"

namespace {

using namespace marl;

constexpr int kHighestMtu = 1500;
constexpr short kUpAndRunning = IFF_UP | IFF_RUNNING;

int open_inet_socket() { return open_socket(AF_INET, SOCK_DGRAM, 0); }

int fail(const char* function, const char* message, int line = __builtin_LINE()) {
    diag::error({module::kNet, function, line}, "%s", message);
    return -1;
}

int fail_system(const char* tag) {
    diag::library_system_error(tag, errno);
    return -1;
}

int fail_plain(const char* message) {
    diag::err("%s", message);
    return -1;
}

ifreq request_for(const char* name) {
    ifreq request{};
    copy_text(request.ifr_name, sizeof request.ifr_name, name);
    return request;
}

void set_address(sockaddr& where, in_addr_t address) {
    sockaddr_in value{};
    value.sin_family = AF_INET;
    value.sin_addr.s_addr = address;
    memcpy(&where, &value, sizeof value);
}

int set_flags(int fd, ifreq& request, short set, short clear) {
    request.ifr_flags = static_cast<short>((request.ifr_flags | set) & ~clear);
    return control(fd, SIOCSIFFLAGS, &request);
}

// The address or netmask, and then the interface up.
int set_interface(const char* name, int type, const char* value) {
    const Fd fd(open_inet_socket());
    if (!fd.is_open()) return fail_system("socket");
    ifreq request = request_for(name);
    const in_addr_t address = inet_addr(value);
    if (address == INADDR_NONE) return fail("SetEthAttr", "express error");
    set_address(request.ifr_addr, address);
    const bool is_address = type == NET_ATTR_IP;
    if (control(fd.get(), is_address ? SIOCSIFADDR : SIOCSIFNETMASK, &request) < 0) {
        return fail_plain(is_address ? "set ip error\n" : "set netmask error\n");
    }
    if (control(fd.get(), SIOCGIFFLAGS, &request) < 0) return fail_plain("SIOCGIFFLAGS");
    if (set_flags(fd.get(), request, kUpAndRunning, 0) < 0) return fail_plain("SIOCSIFFLAGS");
    return 0;
}

bool is_any_of(const char* name, std::span<const char* const> names) {
    return std::any_of(names.begin(), names.end(),
                       [name](const char* one) { return strcmp(one, name) == 0; });
}

// The interfaces of the board.
struct Devices {
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    int count;

    Devices() : entries(), count(NetGetEthDevice(entries, MARL_NET_DEVICES_MAX)) {}
};

rtentry default_route(unsigned short flags) {
    rtentry route{};
    set_address(route.rt_dst, 0);
    route.rt_flags = flags;
    return route;
}

// One of each interface of the board. The kernel takes any that fits, so routes of other interfaces stay.
void remove_default_routes(int fd, Devices& devices) {
    rtentry route = default_route(RTF_UP | RTF_GATEWAY);
    for (NetDeviceEntry& each : std::span(devices.entries, static_cast<size_t>(devices.count))) {
        route.rt_dev = each.name;
        control(fd, SIOCDELRT, &route);
    }
}

int add_default_route(int fd, const char* name, const char* gateway) {
    const bool over_ppp = strcmp(name, "ppp0") == 0;
    rtentry route = default_route(over_ppp ? RTF_UP | RTF_MODIFIED : RTF_UP | RTF_GATEWAY);
    char device[IFNAMSIZ];
    copy_text(device, sizeof device, name);
    route.rt_dev = device;
    if (over_ppp) {
        set_address(route.rt_genmask, 0);
    } else {
        set_address(route.rt_gateway, NetStrToAddr(gateway));
    }
    return control(fd, SIOCADDRT, &route);
}

// Two interfaces must not get addresses in one subnet.
bool clashes_with_other_interface(const char* name, const char* address, const char* mask) {
    if (Devices().count <= 1 || name == nullptr) return false;
    constexpr const char* kWireless[] = {"eth2", "wlan0"};
    if (is_any_of(name, kWireless)) return NetSameSubnet("eth0", address, mask) == 1;
    return strcmp(name, "eth0") == 0 && NetSameSubnet("eth2", address, mask) == 1;
}

// What could be set but not stored would be gone at the next start: an address is taken with a blank behind it.
bool apply(const char* name, int type, const char* value) {
    const bool is_storable = value == nullptr || *value == '\0' || is_word(value);
    if (!is_storable) {
        fail("SetEthAttr", "express error");
        return false;
    }
    if (SetEthAttr(name, type, value) != 0) return false;
    SaveEthAttr(name, type, value);
    return true;
}

bool apply_ip_mask(const char* name, const char* address, const char* mask) {
    return apply(name, NET_ATTR_IP, address) && apply(name, NET_ATTR_NETMASK, mask);
}

}  // namespace

int SetEthAttr(const char* name, int type, const char* value) {
    if (type == NET_ATTR_GATEWAY) {
        return SetGateWay(name, value) < 0 ? fail("SetEthAttr", "SetGateWay error") : 0;
    }
    if (type != NET_ATTR_IP && type != NET_ATTR_NETMASK) return fail("SetEthAttr", "type error");
    if (name == nullptr || value == nullptr) return -1;
    return set_interface(name, type, value);
}

int SetGateWay(const char* name, const char* gateway) {
    constexpr const char* kChecked[] = {"eth0", "eth1", "eth2", "wlan0"};
    if (name == nullptr) return fail("SetGateWay", "pEthName is NULL");
    if (gateway == nullptr) return fail("SetGateWay", "pGageway is NULL");
    if (is_any_of(name, kChecked) && NetSameSubnet(name, gateway, nullptr) == 0) {
        diag::line("[libmarl] Gateway and ip are in different subnet");
        return -1;
    }
    Devices devices;
    if (devices.count < 1) return fail("SetGateWay", "NetGetEthName");
    const Fd fd(open_inet_socket());
    if (!fd.is_open()) return fail("SetGateWay", "socket");
    remove_default_routes(fd.get(), devices);
    if (add_default_route(fd.get(), name, gateway) < 0) return fail("SetGateWay", "SIOCADDRT");
    diag::line("[libmarl] set success");
    return 0;
}

int NetGetGateway(const char* name, char* out, int outLen) {
    if (GetEthAttr(name, NET_ATTR_GATEWAY, out, outLen) == 0) return 0;
    if (out != nullptr && outLen > 0) *out = '\0';
    return fail_plain("get default gateway error\n");
}

int NetGetEth0Gateway(char* out, int outLen) { return NetGetGateway("eth0", out, outLen); }

int NetGetIpMask(const char* name, char* ip, int ipLen, char* mask, int maskLen) {
    if (GetEthAttr(name, NET_ATTR_IP, ip, ipLen) < 0) return fail_plain("get default ip error\n");
    if (GetEthAttr(name, NET_ATTR_NETMASK, mask, maskLen) < 0)
        return fail_plain("get default netmask error\n");
    return 0;
}

int NetGetEth0IpMask(char* ip, int ipLen, char* mask, int maskLen) {
    return NetGetIpMask("eth0", ip, ipLen, mask, maskLen);
}

int ResetNetCard(const char* name) {
    const int index = NetGetEthIndex(name, "ResetNetCard");
    if (index < 0) return -1;
    const Fd fd(open_inet_socket());
    if (!fd.is_open()) return fail_system("socket");
    ifreq request = request_for(name);
    if (control(fd.get(), SIOCGIFFLAGS, &request) < 0) return fail_system("SIOCGIFFLAGS");
    if (set_flags(fd.get(), request, 0, IFF_UP) < 0 || set_flags(fd.get(), request, kUpAndRunning, 0) < 0) {
        return fail_system("SIOCSIFFLAGS");
    }
    return 0;
}

int NetSetMTU(const char* name, int mtu) {
    if (name == nullptr || static_cast<unsigned>(mtu) > kHighestMtu) return -1;
    const Fd fd(open_inet_socket());
    if (!fd.is_open()) return fail_system("Socket error");
    ifreq request = request_for(name);
    request.ifr_mtu = mtu;
    return control(fd.get(), SIOCSIFMTU, &request) < 0 ? fail_system("ioctl SIOCSIFMTU error") : 0;
}

int NetGetMTU(const char* name, int* mtu) {
    if (name == nullptr || mtu == nullptr) return -1;
    const Fd fd(open_inet_socket());
    if (!fd.is_open()) return fail_system("Socket error");
    ifreq request = request_for(name);
    if (control(fd.get(), SIOCGIFMTU, &request) < 0) return fail_system("ioctl SIOCGIFMTU error");
    *mtu = request.ifr_mtu;
    return 0;
}

int NetApplyGateway(const char* name, const char* gateway) {
    return apply(name, NET_ATTR_GATEWAY, gateway) ? NetSendarp(name) : -1;
}

int NetApplyEth0Gateway(const char* gateway) { return NetApplyGateway("eth0", gateway); }

int NetApplyIpMask(const char* name, const char* address, const char* mask) {
    if (clashes_with_other_interface(name, address, mask)) return -1;
    if (NetIsBroadcast(address, mask) == 1 || !apply_ip_mask(name, address, mask)) return -1;
    return strcmp(name, "lo") == 0 ? 0 : NetSendarp(name);
}

int NetApplyEth0IpMask(const char* address, const char* mask) {
    if (address == nullptr || mask == nullptr || NetIsBroadcast(address, mask) != 0) return -1;
    return apply_ip_mask("eth0", address, mask) ? NetSendarp("eth0") : -1;
}
