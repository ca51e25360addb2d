#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/env.h"
#include "libmarl/interfaces.h"
#include "libmarl/net_identity.h"
#include "net/text_file.h"

namespace {

using namespace marl;

constexpr const char* kResolver = "/mnt/mtd/Config/resolv.conf";
constexpr std::string_view kServerKey = "nameserver";
constexpr const char* kDefaultServer = "8.8.8.8";
constexpr int kLeastServerSize = 16;
constexpr size_t kResolverLineSize = 64;

using ResolverLine = char[kResolverLineSize];

// Both lines, or none when one cannot be read.
bool read_resolver(int fd, ResolverLine& first, ResolverLine& second) {
    LineReader reader(fd);
    reader.next(first, sizeof first);
    reader.next(second, sizeof second);
    return !reader.failed();
}

void take_server(std::string_view text, char* out, int size) {
    if (!text.starts_with(kServerKey)) return;
    text.remove_prefix(kServerKey.size());
    if (const auto server = first_word(text); !server.empty()) {
        copy_text(out, static_cast<size_t>(size), server);
    }
}

// An empty one keeps the other in its line; a longer one would run over what is read of a line.
bool is_server(std::string_view server) {
    return (server.empty() || is_word(server)) && kServerKey.size() + server.size() + 2 < kResolverLineSize;
}

int fail_resolver() {
    diag::library_system_error("fopen resolv.conf", errno);
    return -1;
}

bool is_host_name(const char* name) {
    constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._";
    const std::string_view text = name;
    return !text.empty() && text.front() != '-' && text.find_first_not_of(kAllowed) == std::string_view::npos;
}

}  // namespace

int NetGetDNS(char* primary, int plen, char* secondary, int slen) {
    if (primary == nullptr || secondary == nullptr) return -1;
    if (plen < kLeastServerSize || slen < kLeastServerSize) {
        diag::err("iPlen = %d\n", plen);
        return -1;
    }
    const Fd file(open_file(kResolver, O_RDONLY));
    if (!file.is_open() && errno == ENOENT) {
        copy_text(primary, static_cast<size_t>(plen), kDefaultServer);
        copy_text(secondary, static_cast<size_t>(slen), kDefaultServer);
        return 0;
    }
    ResolverLine first;
    ResolverLine second;
    if (!file.is_open() || !read_resolver(file.get(), first, second)) return fail_resolver();
    take_server(first, primary, plen);
    take_server(second, secondary, slen);
    return 0;
}

int NetSetDNS(const char* primary, const char* secondary) {
    char text[2 * kResolverLineSize] = {};
    size_t length = 0;
    for (const char* server : {primary, secondary}) {
        if (server == nullptr) continue;
        if (!is_server(server)) return -1;
        const int n = snprintf(text + length, sizeof text - length, "%s %s\n", kServerKey.data(), server);
        length += static_cast<size_t>(n);
    }
    TextFile file(kResolver);
    if (!file.is_open()) return fail_resolver();
    return file.save({text, length}) ? 0 : -1;
}

int NetGetMAC(const char* name, char* out, int n) {
    const int index = NetGetEthIndex(name, "NetGetMAC");
    if (index < 0) return index;
    if (out == nullptr || n < 1) return -1;
    const Fd fd(open_socket(AF_INET, SOCK_DGRAM, 0));
    if (!fd.is_open()) diag::err("socket\n");
    ifreq request{};
    copy_text(request.ifr_name, sizeof request.ifr_name, name);
    if (control(fd.get(), SIOCGIFHWADDR, &request) < 0) {
        diag::err("SIOCGIFHWADDR,%s\n", name);
        return -1;
    }
    uint8_t mac[6];
    memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
    char text[sizeof "xx:xx:xx:xx:xx:xx"];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
             mac[5]);
    copy_text(out, static_cast<size_t>(n), text);
    return 0;
}

int NetSetMAC(const char* name, const char* mac) {
    const int index = NetGetEthIndex(name, "NetSetMAC");
    if (index < 0) return index;
    if (mac == nullptr) {
        diag::err("pEthName or pEthMac is NULL\n");
        return -1;
    }
    if (strcmp(name, "eth0") != 0 && strcmp(name, "eth2") != 0) {
        diag::err("not found device %s\n", name);
        return -1;
    }
    return __set_armboot_para("ethaddr", mac);
}

int NetSetHostName(const char* name) {
    if (name == nullptr || !is_host_name(name)) return -1;
    char command[64];
    snprintf(command, sizeof command, "hostname %.*s", static_cast<int>(sizeof command - sizeof "hostname "),
             name);
    return system(command);
}
