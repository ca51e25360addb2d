// Where each of the two listings has seen the device of a slot last.
#pragma once

#include <array>
#include <cstdint>

namespace marl {

struct SheetSlot {
    int32_t bus = -1;
    int32_t port = -1;     // counts from 1
    int32_t changed = -1;  // 0 when the device came to the first port of the first bus, 1 for any other place
};

using IndexSheet = std::array<SheetSlot, 5>;

// Each written by one listing at every call; a device that moved between calls shows in `changed`.
extern IndexSheet g_wireless_sheet;
extern IndexSheet g_serial_sheet;

}  // namespace marl
