// Network settings, saved and running.
#include <libmarl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "env.h"
#include "handlers.h"
#include "messages.h"
#include "results.h"
#include "values.h"

namespace tool {
namespace {

constexpr const char* kDefaultInterface = "eth0";
constexpr const char* kLinks[] = {"up", "down", "unknown"};

struct SavedSetting {
    const char* name;
    int type;
};

constexpr SavedSetting kSaved[] = {
    {"saved_address", NET_ATTR_IP},
    {"saved_mask", NET_ATTR_NETMASK},
    {"saved_gateway", NET_ATTR_GATEWAY},
    {"saved_priority", NET_ATTR_PRIO},
};

const char* interface_of(const Request& request, int word) {
    return request.word(word) != nullptr ? request.word(word) : kDefaultInterface;
}

// What the kernel has; the library tells of saved addresses only. False where the interface has none.
bool ask_kernel(const char* interface, unsigned long what, char (&out)[MARL_NET_VALUE_SIZE]) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    ifreq wanted{};
    snprintf(wanted.ifr_name, sizeof wanted.ifr_name, "%s", interface);
    const bool is_known = ioctl(fd, what, &wanted) == 0;
    close(fd);
    sockaddr_in address{};
    memcpy(&address, &wanted.ifr_addr, sizeof address);
    if (is_known) NetIpToStr(address.sin_addr.s_addr, out);
    return is_known;
}

void show_running(const char* interface) {
    char text[MARL_NET_VALUE_SIZE], mac[18];
    int mtu = 0;
    results::field("address", ask_kernel(interface, SIOCGIFADDR, text) ? text : nullptr);
    results::field("mask", ask_kernel(interface, SIOCGIFNETMASK, text) ? text : nullptr);
    results::field("mac", NetGetMAC(interface, mac, sizeof mac) == 0 ? mac : nullptr);
    NetGetMTU(interface, &mtu) == 0 ? results::field("mtu", mtu) : results::field("mtu", nullptr);
    const int link = mii_diag(interface);
    results::field("link", kLinks[link == 0 ? 0 : link == -1 ? 1 : 2]);
}

void show_interface(const char* interface) {
    results::begin(interface);
    for (const SavedSetting& setting : kSaved) {
        char text[MARL_NET_VALUE_SIZE] = "";
        results::field(setting.name,
                       GetEthAttr(interface, setting.type, text, sizeof text) == 0 ? text : nullptr);
    }
    show_running(interface);
    results::end();
}

// Whether what is saved reads as it should, which DHCP or a full flash may prevent.
bool is_saved(const char* interface, int type, const char* wanted) {
    char saved[MARL_NET_VALUE_SIZE] = "";
    const bool is_readable = GetEthAttr(interface, type, saved, sizeof saved) == 0;
    if (is_readable && strcmp(saved, wanted) == 0) return true;
    failed("%s: what is saved reads \"%s\" instead of %s", interface, saved, wanted);
    return false;
}

Exit show_servers() {
    char first[MARL_NET_VALUE_SIZE] = "", second[MARL_NET_VALUE_SIZE] = "";
    if (NetGetDNS(first, sizeof first, second, sizeof second) != 0)
        return failed("the DNS servers cannot be read");
    results::field("primary", *first != '\0' ? first : nullptr);
    results::field("secondary", *second != '\0' ? second : nullptr);
    return kDone;
}

}  // namespace

bool is_setting(const Request& request) { return request.word(0) != nullptr; }

Exit net_show(const Request& request) {
    if (request.word(0) != nullptr) {
        show_interface(request.word(0));
        return kDone;
    }
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    const int count = NetGetEthDevice(entries, MARL_NET_DEVICES_MAX);
    if (count < 0) return failed("the interfaces cannot be listed");
    for (int i = 0; i < count; ++i) {
        // The others have no settings of their own.
        if (NetGetEthIndex(entries[i].name, "net show") >= 0) show_interface(entries[i].name);
    }
    return kDone;
}

Exit net_set(const Request& request) {
    const char* interface = request.value("--interface", kDefaultInterface);
    const char* gateway = request.word(1);
    Subnet subnet;
    parse_subnet(request.word(0), subnet);
    if (NetApplyIpMask(interface, subnet.address, subnet.mask) != 0) {
        return failed("%s: the address cannot be set to %s", interface, request.word(0));
    }
    if (gateway != nullptr && NetApplyGateway(interface, gateway) != 0) {
        return failed("%s: the gateway cannot be set to %s; the address is set", interface, gateway);
    }
    const bool done = is_saved(interface, NET_ATTR_IP, subnet.address) &&
                      is_saved(interface, NET_ATTR_NETMASK, subnet.mask) &&
                      (gateway == nullptr || is_saved(interface, NET_ATTR_GATEWAY, gateway));
    const results::JsonOnly rest;
    results::field("interface", interface);
    results::field("address", subnet.address);
    results::field("mask", subnet.mask);
    results::field("gateway", gateway);
    results::flag("saved", done);
    return done ? kDone : kFailed;
}

Exit net_dns(const Request& request) {
    if (is_setting(request) && NetSetDNS(request.word(0), request.word(1)) != 0) {
        return failed("the DNS servers cannot be saved");
    }
    return show_servers();
}

// Set for the next start, in the boot environment.
Exit net_mac(const Request& request) {
    if (is_setting(request)) return set_variable("ethaddr", request.word(0));
    const char* interface = request.value("--interface", kDefaultInterface);
    char running[18] = "", stored[32] = "";
    const bool is_running = NetGetMAC(interface, running, sizeof running) == 0;
    results::field("running", is_running ? running : nullptr);
    results::field("next_start", get_armboot_para("ethaddr", stored, sizeof stored) == 0 ? stored : nullptr);
    return kDone;
}

Exit net_host(const Request& request) {
    if (is_setting(request) && NetSetHostName(request.word(0)) != 0) {
        return failed("the host name cannot be set to %s", request.word(0));
    }
    utsname names{};
    if (uname(&names) != 0) return failed_system("uname");
    const char* name = is_setting(request) ? request.word(0) : names.nodename;
    if (!is_setting(request)) results::print("%s\n", name);
    const results::JsonOnly rest;
    results::field("host", name);
    return kDone;
}

Exit net_arp(const Request& request) {
    const char* interface = interface_of(request, 0);
    if (NetSendarp(interface) != 0) return failed("%s cannot be announced", interface);
    const results::JsonOnly rest;
    results::field("interface", interface);
    return kDone;
}

}  // namespace tool
