#include "mcu/frame_assembler.h"

namespace marl::mcu {
namespace {

constexpr uint8_t kStart = 0xA0;
constexpr uint8_t kEnd = 0x0A;
constexpr uint8_t kFiller = 0xFF;
constexpr uint32_t kBeforeEnd = MCU_FRAME_SIZE - 1;

}  // namespace

FrameAssembler::Event FrameAssembler::feed(uint8_t byte) {
    if (count_ == 0) {
        if (byte == kStart) bytes_[count_++] = byte;
        return Event::None;
    }
    if (byte == kFiller) return Event::None;
    // The end byte is data as well, as long as the frame is not full.
    return byte == kEnd && count_ >= kBeforeEnd ? end_of_frame() : data(byte);
}

FrameAssembler::Event FrameAssembler::end_of_frame() {
    const bool whole = count_ == kBeforeEnd;
    bytes_[kBeforeEnd] = kEnd;
    count_ = 0;
    return whole ? Event::Frame : Event::EndedLate;
}

FrameAssembler::Event FrameAssembler::data(uint8_t byte) {
    bytes_[count_++] = byte;
    if (count_ < kLimit) return Event::None;
    count_ = 0;
    return Event::TooLong;
}

}  // namespace marl::mcu
