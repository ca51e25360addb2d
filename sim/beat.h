// The heartbeats of a script: files whose first word is counted up, as the video processes of a device do.
#pragma once

#include <cstdint>

namespace sim::beat {

void write(const char* path, uint32_t count);  // path stays where it is as long as the script is in force
void forget();                                 // the script is no longer in force

}  // namespace sim::beat
