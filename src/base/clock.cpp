#include "base/clock.h"

#include <sys/select.h>

#include <cstdlib>

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

// The board's processor does not divide. The C library's routine is there already, the compiler's would be one
// more in every program.
void sleep_ms(uint32_t milliseconds) {
    const lldiv_t time = lldiv(milliseconds, 1000);
    sleep_for({static_cast<time_t>(time.quot), static_cast<suseconds_t>(time.rem * 1000)});
}

void sleep_for_us(uint32_t microseconds) {
    const lldiv_t time = lldiv(microseconds, 1'000'000);
    sleep_for({static_cast<time_t>(time.quot), static_cast<suseconds_t>(time.rem)});
}

}  // namespace marl
