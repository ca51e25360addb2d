#include "mcu/reader.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "base/clock.h"
#include "base/fd.h"
#include "mcu/common.h"
#include "mcu/frame_assembler.h"
#include "mcu/ring.h"
#include "mcu/ring_table.h"

namespace marl::mcu {
namespace {

constexpr size_t kBlockSize = 8;

// A ring holds whole frames only: a part of one would shift all that its readers take from then on.
void deliver(std::span<const uint8_t, MCU_FRAME_SIZE> frame) {
    const HeldRing ring(frame[1]);
    if (ring.exists() && fifo_room(ring.get()) >= frame.size())
        fifo_put(ring.get(), frame.data(), MCU_FRAME_SIZE);
}

void feed(FrameAssembler& assembler, uint8_t byte) {
    switch (assembler.feed(byte)) {
        case FrameAssembler::Event::None:
            break;
        case FrameAssembler::Event::Frame:
            deliver(assembler.frame());
            break;
        case FrameAssembler::Event::TooLong:
            diag::error({module::kMcu, "thread_spi_read"}, " data frame error!!!\n");
            break;
        case FrameAssembler::Event::EndedLate:
            diag::error({module::kMcu, "thread_spi_read"}, "data frame error!!!\n");
            break;
    }
}

// False after an error. The device answers a read that finds nothing with EAGAIN or with no bytes, and one
// that a signal keeps from it is no error either.
bool read_block(int fd, uint8_t (&block)[kBlockSize]) {
    size_t have = 0;
    while (have < kBlockSize) {
        sleep_ms(kPollMs);
        const ssize_t n = read_some(fd, block + have, kBlockSize - have);
        if (n >= 0) {
            have += static_cast<size_t>(n);
        } else if (errno != EAGAIN && errno != EINTR) {
            return false;
        }
    }
    return true;
}

}  // namespace

void* thread_spi_read(void* descriptor) {
    const auto fd = static_cast<int>(reinterpret_cast<intptr_t>(descriptor));
    if (fd < 1) return nullptr;
    diag::out("\033[0;35m[libmarl] PID (%s |pid = %d ): \n\033[m", "thread_spi_read", gettid());
    FrameAssembler assembler;
    uint8_t block[kBlockSize];
    while (read_block(fd, block)) {
        for (const uint8_t byte : block) feed(assembler, byte);
    }
    diag::error({module::kMcu, "thread_spi_read"}, "MCU read error\n");
    return nullptr;
}

}  // namespace marl::mcu
