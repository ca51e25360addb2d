// Requests and their answers, and what is made of them: power switches and shutdown.
#include <algorithm>
#include <iterator>
#include <optional>

#include "base/clock.h"
#include "libmarl/mcu.h"
#include "mcu/common.h"
#include "mcu/frame.h"
#include "mcu/link.h"
#include "mcu/ring.h"
#include "mcu/ring_table.h"

namespace {

using namespace marl;
using mcu::Frame;

constexpr int kAnswerWaits = 300;
constexpr uint32_t kSwitchSettlesMs = 1000;
constexpr uint32_t kPowerSwitches[] = {18, 21, 23, 24, mcu::kModemPower};

bool is_power_switch(uint32_t command) {
    return std::find(std::begin(kPowerSwitches), std::end(kPowerSwitches), command) !=
           std::end(kPowerSwitches);
}

// All `len` bytes or none: the count, -1 without a ring, nothing when they are not there yet.
std::optional<int> take(uint32_t command, uint8_t* buf, uint32_t len) {
    const mcu::HeldRing ring(command);
    if (!ring.exists()) return -1;
    mcu_fifo& fifo = ring.get();
    if (fifo_level(fifo) < len) return std::nullopt;
    const uint32_t taken = fifo_get(fifo, buf, len);
    if (fifo_level(fifo) == 0) fifo.in = fifo.out = 0;
    return static_cast<int>(taken);
}

}  // namespace

int get_spi_data(uint32_t cmd, uint8_t* buf, uint32_t len) {
    if (buf == nullptr || len > MCU_RING_SIZE) return -1;
    if (mcu_open() < 0) return -1;
    const uint32_t reader = mcu::current_reader();
    for (int waits = 0;;) {
        // Asked before the look at the ring: whatever a reader delivers is there once it has ended.
        const bool reads = reader != mcu::kNoReader && mcu::current_reader() == reader;
        if (const auto taken = take(cmd, buf, len)) return *taken;
        if (!reads) return -1;
        if (cmd != MCU_MOUSE && waits++ == kAnswerWaits) break;
        sleep_ms(mcu::kPollMs);
    }
    diag::error({module::kMcu, "get_spi_data"}, "SPI_CMD: 0x%x  read timeout !!!\n", cmd);
    return -1;
}

int mcu_send_frame(uint32_t, const uint8_t* frame) {
    return mcu_write(frame, MCU_FRAME_SIZE) == MCU_FRAME_SIZE ? 0 : -1;
}

int mcu_transact(uint32_t cmd, uint8_t* frame) {
    if (mcu_send_frame(cmd, frame) < 0) {
        mcu::report_assertion();
        return -1;
    }
    return get_spi_data(cmd, frame, MCU_FRAME_SIZE) == MCU_FRAME_SIZE ? 0 : -1;
}

int mcu_query_status(uint32_t cmd, uint8_t* state) {
    if (state == nullptr || !is_power_switch(cmd)) return -1;
    Frame frame(cmd, mcu::kQuery, 0);
    if (mcu_transact(cmd, frame.bytes) < 0) return -1;
    *state = frame.bytes[mcu::kValueByte];
    return 0;
}

int PowerControl(uint32_t cmd, uint32_t on) {
    if (!is_power_switch(cmd) || on > 1) return -1;
    const Frame set(cmd, mcu::kSet, on);
    if (mcu_send_frame(cmd, set.bytes) < 0) {
        diag::error({module::kMcu, "PowerControl"}, "Send CMD2SPI to mcu fail!\n");
        return -1;
    }
    sleep_ms(kSwitchSettlesMs);
    uint8_t state = 0;
    if (mcu_query_status(cmd, &state) < 0) {
        diag::error({module::kMcu, "PowerControl"}, "Set and QueryStatus fail!\n");
        return -1;
    }
    if (state != on) {
        diag::error({module::kMcu, "PowerControl"}, "Set CMD:0x%x fail!\n", cmd);
        return -1;
    }
    diag::out("[libmarl] Set CMD:0x%x *************************success\n\n", cmd);
    return 0;
}

int mcu_shutdown() {
    const Frame shutdown(MCU_SHUTDOWN, mcu::kSet, 0);
    return mcu_write(shutdown.bytes, sizeof shutdown.bytes);
}
