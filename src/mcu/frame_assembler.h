// Finds the microcontroller's frames in its byte stream.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "libmarl/mcu.h"

namespace marl::mcu {

class FrameAssembler {
  public:
    enum class Event : uint8_t {
        None,
        Frame,     // frame() holds one
        TooLong,   // given up: data without an end
        EndedLate  // given up: its end came behind more data than a frame has
    };

    Event feed(uint8_t byte);

    // The frame that the last byte ended, until the next byte is fed.
    std::span<const uint8_t, MCU_FRAME_SIZE> frame() const {
        return std::span(bytes_).first<MCU_FRAME_SIZE>();
    }

  private:
    static constexpr uint32_t kLimit = 16;

    Event end_of_frame();
    Event data(uint8_t byte);

    std::array<uint8_t, kLimit> bytes_{};
    uint32_t count_ = 0;  // 0: outside a frame
};

}  // namespace marl::mcu
