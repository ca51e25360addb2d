// What the link's other files need to know of its reader.
#pragma once

#include <cstdint>

namespace marl::mcu {

inline constexpr uint32_t kNoReader = 0;

// The number of the reader that delivers now, kNoReader when none does: there was none yet, or the last one
// has ended with an error. The next mcu_open() starts one, with another number.
uint32_t current_reader();

}  // namespace marl::mcu
