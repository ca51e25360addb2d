// What a board has: its directories, the device files that there are models of, and what is there from the start.
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

// Every board has these files and directories, whatever its script says.
inline constexpr const char* kEmptyBoard =
    "0 - log board start\n"
    "0 - directory /dev/mtd/\n0 - directory /proc/\n0 - directory /tmp/\n0 - directory /etc/\n"
    "0 - directory /mnt/mtd/Config/\n0 - directory /mnt/mtd/Log/\n0 - directory /mnt/backup/Config/\n"
    "0 - directory /mnt/custom/\n"
    "0 - put /dev/misc/wdt 0\n0 - put /dev/misc/rtc 0\n0 - put /dev/misc/gpio 0\n"
    "0 - put /dev/misc/gio_expd_in 0\n0 - put /dev/misc/gio_expander 0\n";

// The directories that are the board's, and what in them stays the machine's own.
inline constexpr std::string_view kTops[] = {"/dev", "/proc", "/sys", "/mnt", "/tmp", "/etc"};
inline constexpr std::string_view kOfTheMachine[] = {"/dev/null", "/proc/self"};

// Whether a path is one of the list or lies below it.
template <size_t kCount>
constexpr bool is_under(const std::string_view (&tops)[kCount], std::string_view path) {
    return std::any_of(std::begin(tops), std::end(tops), [path](std::string_view top) {
        return path.starts_with(top) && (path.size() == top.size() || path[top.size()] == '/');
    });
}

constexpr bool is_of_the_board(std::string_view path) {
    return is_under(kTops, path) && !is_under(kOfTheMachine, path) && path.find("/..") == path.npos;
}

constexpr bool is_device(std::string_view path) {
    return std::any_of(std::begin(kDevices), std::end(kDevices), [path](std::string_view device) {
        return path == device || (device.ends_with('/') && path.starts_with(device));
    });
}

}  // namespace sim::script
