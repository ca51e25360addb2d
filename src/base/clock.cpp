#include "base/clock.h"

#include <sys/select.h>

#include <cerrno>

namespace marl {

namespace {

void sleep_for(timeval left) {
    // Linux leaves the time not slept in `left`.
    while (select(0, nullptr, nullptr, nullptr, &left) < 0 && errno == EINTR) {
    }
}

}  // namespace

void sleep_ms(uint32_t milliseconds) {
    sleep_for(
        {static_cast<time_t>(milliseconds / 1000), static_cast<suseconds_t>(milliseconds % 1000 * 1000)});
}

void sleep_for_us(uint32_t microseconds) {
    sleep_for(
        {static_cast<time_t>(microseconds / 1'000'000), static_cast<suseconds_t>(microseconds % 1'000'000)});
}

}  // namespace marl
