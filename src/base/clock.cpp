#include "base/clock.h"

#include <sys/select.h>

#include <cerrno>

namespace marl {

void sleep_ms(uint32_t milliseconds) {
    timeval left{static_cast<time_t>(milliseconds / 1000),
                 static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
    // Linux leaves the time not slept in `left`.
    while (select(0, nullptr, nullptr, nullptr, &left) < 0 && errno == EINTR) {
    }
}

}  // namespace marl
