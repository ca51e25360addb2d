// The names by which messages tell where they come from: the first field of ERROR and WARN lines, and
// the file of an assertion. They belong to the texts of the system, so they stay as they are wherever
// the code lies.
#pragma once

namespace marl::module {

inline constexpr const char* kEnvironment = "src/misc/env";
inline constexpr const char* kIdentity = "src/misc/ver";
inline constexpr const char* kGpio = "src/misc/gpio";
inline constexpr const char* kSystem = "src/misc/sys";
inline constexpr const char* kModem = "src/misc/gpio_3g";
inline constexpr const char* kNet = "src/net/net";
inline constexpr const char* kFlash = "src/flash/flash";
inline constexpr const char* kFpgaFlash = "src/flash/flash_fun/fpga_flash";
inline constexpr const char* kMcu = "src/mouse/SpiUtil";
inline constexpr const char* kDaemon = "sentrel";

}  // namespace marl::module
