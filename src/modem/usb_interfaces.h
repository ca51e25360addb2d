// The interfaces that drivers made of USB devices, as the paths of their files tell: by the place of the
// device, which is all that a path and the kernel's device list have in common.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "libmarl/usb_devices.h"

namespace marl {

struct InterfaceEntry {
    int16_t bus;
    int16_t port;   // counts from 1
    int16_t level;  // as in the device list: 1 on the root hub, 2 behind another
    std::array<int16_t, MARL_USB_INTERFACES_MAX> numbers;
};

static_assert(sizeof(InterfaceEntry) == 24);

// One entry for each place that has interfaces, in the order they were found; fields not used are -1. Devices
// that are not listed have interfaces as well, so there is room for all that a bus can have, however few are
// listed.
class InterfaceTable {
  public:
    static constexpr size_t kPlaces = 127;

    InterfaceTable();
    ~InterfaceTable();
    InterfaceTable(const InterfaceTable&) = delete;
    InterfaceTable& operator=(const InterfaceTable&) = delete;

    bool has_memory() const { return !entries_.empty(); }
    std::span<const InterfaceEntry> used() const;

    // The entry of a place, a new one with the place's fields when there is none; null when all are used.
    InterfaceEntry* entry_of(const InterfaceEntry& place);

  private:
    std::span<InterfaceEntry> entries_;
};

// Fill the table from what is below /sys/devices/platform: wireless interfaces and then serial ones, or
// serial ones alone. 0, or -1 after an ERROR line.
int find_all_interfaces(InterfaceTable& table);
int find_serial_interfaces(InterfaceTable& table);

}  // namespace marl
