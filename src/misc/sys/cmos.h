#pragma once

namespace marl {

// Takes the CMOS lock for the rest of the process's life: no CMOS access of any thread can follow.
void hold_cmos_for_good();

}  // namespace marl
