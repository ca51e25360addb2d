#include "uevent.h"

#include <algorithm>

#include "real.h"

namespace sim::uevent {
namespace {

constexpr size_t kMost = 8192;

// The last pair: the program's end, and the one that events go into.
int ends[2] = {-1, -1};

}  // namespace

int open() {
    if (ends[1] >= 0) real.close(ends[1]);
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) == 0) return ends[0];
    ends[0] = ends[1] = -1;
    return -1;
}

bool is_open(int descriptor) { return descriptor >= 0 && descriptor == ends[0]; }

bool send(const char* text, size_t length, size_t size) {
    char event[kMost] = {};
    if (length > kMost || size > kMost) return false;
    memcpy(event, text, length);
    if (ends[1] < 0) return true;
    real.sendto(ends[1], event, std::max(length, size), MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0);
    return true;
}

}  // namespace sim::uevent
