// The kernel's list of USB devices, as a board would show it.
#pragma once

#include <string>
#include <string_view>

namespace usb_list {

struct Device {
    int level = 1;
    int port = 0;
    const char* vendor = "19d2";
    const char* product_id = "fff1";
    const char* manufacturer = "ZTE, Incorporated";  // null: gives neither manufacturer nor product
    const char* driver = "usbserial_generic";
};

inline constexpr Device kRootHub = {0, 0, "0000", "0000", "Linux 2.6.10 musb-hcd", "hub"};

std::string block(const Device& device);

// Makes this the board's list.
void put(std::string_view list);

}  // namespace usb_list
