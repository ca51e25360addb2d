// Sockets.
#include <algorithm>

#include "devices.h"
#include "interpose.h"
#include "launch/run.h"

namespace sim {
namespace {

// The kernel's events come through the last pair: the program's end, and the one that they go into.
int event_ends[2] = {-1, -1};

int open_events() {
    real.close(event_ends[1]);
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, event_ends) == 0) return event_ends[0];
    return event_ends[0] = event_ends[1] = -1;
}

// A board without a network takes frames too: they go nowhere, but the journal has them.
bool takes_frames(int domain, int type) {
    return domain == AF_PACKET || (domain == AF_INET && (type & 0xF) == SOCK_PACKET);
}

}  // namespace

bool devices::send_event(Words& words) {
    char event[8192] = {};
    const auto wanted = static_cast<size_t>(words.number());
    const std::string_view text = words.bytes();
    const size_t size = std::max(text.size(), wanted);
    if (size > sizeof event) return false;
    text.copy(event, text.size());
    real.sendto(event_ends[1], event, size, MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0);
    return true;
}

}  // namespace sim

using namespace sim;

EXPORT int socket(int domain, int type, int protocol) noexcept {
    return call([&]() -> int64_t {
        if (domain == AF_UNIX && !board::is_launched()) return or_errno(real.socket(domain, type, protocol));
        const char* name = domain == AF_INET      ? "open inet"
                           : domain == AF_PACKET  ? "open packet"
                           : domain == AF_NETLINK ? "open netlink"
                                                  : "open other";
        const int64_t result = told("socket", "open", name, [&] {
            if (domain == AF_NETLINK) return open_events();
            if (devices::state.network && domain != AF_UNIX) return real.socket(domain, type, protocol);
            if (takes_frames(domain, type)) {
                return real.socket(AF_UNIX, SOCK_DGRAM | (type & SOCK_CLOEXEC), 0);
            }
            return errno = EAFNOSUPPORT, -1;
        });
        if (result >= 0) board::track(static_cast<int>(result), "socket");
        return result;
    });
}

DESCRIPTOR_CALL(int, setsockopt, option, (int fd, int level, int option, const void* value, socklen_t size),
                (fd, level, option, value, size))
EXPORT ssize_t sendto(int fd, const void* data, size_t size, int flags, const sockaddr* to,
                      socklen_t length) {
    return transfer("sendto", fd, data, size, [&](size_t most) {
        if (board::tracked(fd) != nullptr && !devices::state.network) return static_cast<ssize_t>(most);
        return real.sendto(fd, data, most, flags, to, length);
    });
}

// Asked for over and over, so only its faults are told.
EXPORT ssize_t recvfrom(int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length) {
    return call<ssize_t>([&]() -> int64_t {
        const int64_t fault = board::tracked(fd) != nullptr ? script::fault_of("socket", "recvfrom") : 0;
        return fault < 0 ? fault : or_errno(real.recvfrom(fd, data, size, flags, from, length));
    });
}

EXPORT int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    return on_file("bind", fd, address->sa_family,
                   [&] { return fd == event_ends[0] ? 0 : real.bind(fd, address, length); });
}

EXPORT int unshare(int flags) noexcept {
    find_real_functions();
    const int result = real.unshare(flags);
    if (result == 0 && (flags & CLONE_NEWNET) != 0) launch::remember_network();
    return result;
}
