// Device files that more than one part of the system opens for itself.
#pragma once

namespace marl::device {

inline constexpr const char* kGpio = "/dev/misc/gpio";
inline constexpr const char* kRtc = "/dev/misc/rtc";  // the clock and the CMOS bytes
inline constexpr const char* kVideoFrontEnd = "/dev/davinci_vpfe";
inline constexpr const char* kMemory = "/dev/mem";
inline constexpr const char* kBootParameters = "/proc/qorzo/bootpara";

}  // namespace marl::device
