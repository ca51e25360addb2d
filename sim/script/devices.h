// What a script may name: the device files that there are models of.
#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>

namespace sim::script {

// One that ends in '/' stands for all below it.
inline constexpr std::string_view kDevices[] = {
    "/dev/misc/wdt",   "/dev/misc/rtc",
    "/dev/misc/gpio",  "/dev/misc/gio_expd_in",
    "/dev/misc/ataen", "/dev/misc/gio_expander",
    "/dev/misc/spi0",  "/dev/misc/spi1",
    "/dev/mcu",        "/dev/mem",
    "/dev/mtd/",       "/dev/davinci_vpfe",
    "/dev/dm6480",     "/dev/ad9920_dev",
    "/dev/ad9979_dev",
};

constexpr bool is_device(std::string_view path) {
    return std::any_of(std::begin(kDevices), std::end(kDevices), [path](std::string_view device) {
        return path == device || (device.ends_with('/') && path.starts_with(device));
    });
}

}  // namespace sim::script
