#pragma once

#include <cstdint>

namespace marl {

// The CMOS byte that tells how a run ended: 0 after an orderly end, else 1.
inline constexpr uint8_t kRunMarker = 1;

// Takes the CMOS lock for the rest of the process's life: no CMOS access of any thread can follow.
void hold_cmos_for_good();

}  // namespace marl
