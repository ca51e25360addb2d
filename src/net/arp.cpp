#include <arpa/inet.h>
#include <net/ethernet.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/interfaces.h"
#include "libmarl/net_identity.h"
#include "libmarl/net_live.h"
#include "libmarl/network.h"

namespace {

using namespace marl;

constexpr size_t kFrameSize = 60;  // the shortest that Ethernet carries, without its checksum

struct Frame {
    ether_header ethernet;
    ether_arp arp;
    uint8_t padding[kFrameSize - sizeof(ether_header) - sizeof(ether_arp)];
};
static_assert(sizeof(Frame) == kFrameSize);
static_assert(offsetof(Frame, padding) == 42);

Frame announcement(uint32_t address, const uint8_t* mac) {
    Frame frame{};
    memset(frame.ethernet.ether_dhost, 0xFF, ETH_ALEN);
    memcpy(frame.ethernet.ether_shost, mac, ETH_ALEN);
    frame.ethernet.ether_type = htons(ETHERTYPE_ARP);
    frame.arp.ea_hdr.ar_hrd = htons(ARPHRD_ETHER);
    frame.arp.ea_hdr.ar_pro = htons(ETHERTYPE_IP);
    frame.arp.ea_hdr.ar_hln = ETH_ALEN;
    frame.arp.ea_hdr.ar_pln = sizeof address;
    frame.arp.ea_hdr.ar_op = htons(ARPOP_REPLY);
    memcpy(frame.arp.arp_sha, mac, ETH_ALEN);
    memcpy(frame.arp.arp_spa, &address, sizeof address);
    memcpy(frame.arp.arp_tpa, &address, sizeof address);
    return frame;
}

// "xx:xx:xx:xx:xx:xx"
void parse_mac(const char* text, uint8_t (&mac)[ETH_ALEN]) {
    for (uint8_t& each : mac) {
        const char digits[] = {text[0], text[1], '\0'};
        each = static_cast<uint8_t>(hexadecimal(digits));
        text += 3;
    }
}

}  // namespace

int NetSendArpFrame(const char* name, uint32_t address, const uint8_t* mac) {
    if (name == nullptr || mac == nullptr) return -1;
    const Fd fd(open_socket(AF_INET, SOCK_PACKET, htons(ETH_P_ARP)));
    if (!fd.is_open()) {
        diag::library_system_error("SOCK_PACKET", errno);
        return -1;
    }
    const int on = 1;
    if (setsockopt(fd.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) < 0) {
        diag::library_system_error("setsockopt", errno);
        return -1;
    }
    const Frame frame = announcement(address, mac);
    sockaddr interface {};
    copy_text(interface.sa_data, sizeof interface.sa_data, name);
    const ssize_t sent = repeat_interrupted(
        [&] { return sendto(fd.get(), &frame, sizeof frame, 0, &interface, sizeof interface); });
    if (sent < 0) {
        diag::err("sendto arp wrong");
        return -1;
    }
    return 0;
}

int NetSendarp(const char* name) {
    const int index = NetGetEthIndex(name, "NetSendarp");
    if (index < 0) return index;
    char address[20];
    if (GetEthAttr(name, NET_ATTR_IP, address, sizeof address) < 0) {
        diag::err("get ip error\n");
        return -1;
    }
    char mac_text[20] = {};
    if (NetGetMAC(name, mac_text, sizeof mac_text) < 0) {
        diag::err("Can not get host MAC\n");
        return -1;
    }
    uint8_t mac[ETH_ALEN];
    parse_mac(mac_text, mac);
    NetSendArpFrame(name, inet_addr(address), mac);
    return 0;
}
