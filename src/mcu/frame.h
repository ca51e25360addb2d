// The microcontroller's device, and the frames that the host sends it.
#pragma once

#include <cstdint>

#include "libmarl/mcu.h"

namespace marl::mcu {

inline constexpr const char* kDevice = "/dev/mcu";

// Operations of a frame.
inline constexpr uint8_t kSet = 0;
inline constexpr uint8_t kQuery = 1;

inline constexpr uint32_t kModemPower = 25;  // the command that switches the recorders' 3G modem

// The byte of a frame, either way, that holds the value.
inline constexpr size_t kValueByte = 3;

struct Frame {
    constexpr Frame(uint32_t command, uint8_t operation, uint32_t value)
        : bytes{0xA1, static_cast<uint8_t>(command), operation, static_cast<uint8_t>(value), 0, 0, 0x0A} {}

    uint8_t bytes[MCU_FRAME_SIZE];
};

}  // namespace marl::mcu
