#pragma once

namespace sentrel {

// Copies the battery-backed clock into the system clock, right after a second of it begins: takes up to about
// 2 s. Skipped while a firmware upgrade runs. Each failure is reported on standard output and left to the
// next call; the clock is never set from a reading that failed.
void rtc_to_system_clock();

}  // namespace sentrel
