#include "base/clock.h"

#include <sys/select.h>

namespace marl {

namespace {

constexpr int kMostFutileSleeps = 100;

// Only a signal makes this select fail, so errno is not asked, which a clone task would share with the main
// thread. Linux leaves the time not slept in `left`. A kernel that ends every sleep and leaves that time as
// it was is not waited for.
void sleep_for(timeval left) {
    for (int futile = 0; futile < kMostFutileSleeps;) {
        const timeval before = left;
        if (select(0, nullptr, nullptr, nullptr, &left) >= 0) return;
        if (left.tv_sec == before.tv_sec && left.tv_usec == before.tv_usec) ++futile;
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
