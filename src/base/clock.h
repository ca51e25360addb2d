#pragma once

#include <cstdint>

namespace marl {

// Sleeps with select(2) on no descriptors; a signal does not shorten it. Any length, any thread
// or clone task.
void sleep_ms(uint32_t milliseconds);
void sleep_for_us(uint32_t microseconds);

}  // namespace marl
