// Waiting.
#include <algorithm>

#include "interpose.h"

namespace sim {
namespace {

int do_sleep(int64_t duration) {
    return call([&] {
        const int64_t fault = script::fault_of("*", "sleep");
        if (fault >= 0) clock::sleep(duration);
        return std::min<int64_t>(fault, 0);
    });
}

}  // namespace
}  // namespace sim

using namespace sim;

EXPORT int select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* timeout) {
    find_real_functions();
    if (timeout == nullptr || count > 0) return real.select(count, in, out, except, timeout);
    const int result = do_sleep(timeout->tv_sec * clock::kSecond + timeout->tv_usec * 1000LL);
    if (result == 0) *timeout = {};
    return result;
}

EXPORT int usleep(useconds_t micros) { return do_sleep(int64_t{micros} * 1000); }
