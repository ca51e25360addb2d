// The kernel's list of USB devices, as a board would show it.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "helpers/board.h"

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

inline std::string block(const Device& device) {
    char text[1024];
    snprintf(text, sizeof text,
             "T:  Bus=01 Lev=%02d Prnt=%02d Port=%02d Cnt=01 Dev#=  2 Spd=480 MxCh= 0\n"
             "D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\n"
             "P:  Vendor=%s ProdID=%s Rev= 1.00\n",
             device.level, device.level, device.port, device.vendor, device.product_id);
    std::string all = text;
    if (device.manufacturer != nullptr)
        all += std::string("S:  Manufacturer=") + device.manufacturer + "\nS:  Product=HSPA modem\n";
    return all +
           "C:* #Ifs= 1 Cfg#= 1 Atr=e0 MxPwr=500mA\n"
           "I:* If#= 0 Alt= 0 #EPs= 3 Cls=ff(vend.) Sub=ff Prot=ff Driver=" +
           device.driver + "\nE:  Ad=81(I) Atr=03(Int.) MxPS=  16 Ivl=2ms\n";
}

// Makes this the board's list.
inline void put(std::string_view list) { board::write_file("/proc/bus/usb/devices", list); }

}  // namespace usb_list
