// The SPI link to the DM365 co-processor, /dev/misc/spi0, and the requests of its driver.
//
// All of it is called from the co-processor monitor, which is a clone task: plain system calls on a small
// stack.
#pragma once

#include <atomic>
#include <cstdint>

namespace sentrel {

// The product type whose boards carry a co-processor.
inline constexpr int kCoprocessorBoard = 23;

// Values of the driver's words.
inline constexpr uint32_t kUpgrading = 0x2468;
inline constexpr uint32_t kAlive = 0x6984;
inline constexpr uint32_t kAbnormal2a = 1;

inline constexpr unsigned long kBeginExchange = 0x4004730b;
inline constexpr unsigned long kEndExchange = 0x4004730c;
inline constexpr unsigned long kReadStatus = 0x80047302;
inline constexpr unsigned long kQueryAlive = 0x40047305;
inline constexpr unsigned long kQuery2a = 0x4004730a;
inline constexpr unsigned long kQueryVersion = 0x4004730d;
inline constexpr unsigned long kQueryVersionOld = 0x40047309;
inline constexpr unsigned long kBootWait = 0x40047307;
inline constexpr unsigned long kFactoryReset = 0x40047306;

inline constexpr const char* kVersionPath = "/mnt/mtd/dm365_version";

// Written by the co-processor monitor, read by the reset button; -1 until opened.
extern std::atomic<int32_t> spi0_fd;

// One guarded exchange on `fd`. Stores the driver's answer through `out`: `kUpgrading` while a firmware
// upgrade is in progress, else the word that the query leaves, 0 when it fails. A version query writes the
// record to `kVersionPath` and leaves `out` alone. "@@: spi0 device is not open" when `fd` is negative;
// nothing happens then.
void dm365_spi_query(int fd, uint32_t* out, unsigned long request);

// Pulses a reset line of the GPIO device: low for 20 ms, then high for 500 ms. 0, or -1 when it cannot be
// opened.
int dm365_reset_pulse(uint8_t pin);

// Tells the driver that the co-processor boots, waits 45 s and tells it that it has.
void hold_for_boot(int fd);

// Tells the co-processor, when the link is open, that the device is about to be reset to its defaults.
void announce_factory_reset();

}  // namespace sentrel
