// The daemon's use of the SPI link to the DM365 co-processor; its requests stand in board/dm365.h.
//
// All of it is called from the co-processor monitor, which is a clone task: plain system calls on
// a small stack.
#pragma once

#include <atomic>
#include <cstdint>

namespace sentrel {

// The product type whose boards carry a co-processor.
inline constexpr int kCoprocessorBoard = 23;

// Written by the co-processor monitor, read by the reset button; -1 until opened.
extern std::atomic<int32_t> spi0_fd;

// One guarded exchange on `fd`. Stores the driver's answer through `out`: `dm365::kUpgrading` while a
// firmware upgrade is in progress, else the word that the query leaves, 0 when it fails. A version query
// writes the record to `dm365::kVersionPath`, the whole of it or no file, and leaves `out` alone. "@@: spi0
// device is not open" when `fd` is negative; nothing happens then.
void dm365_spi_query(int fd, uint32_t* out, unsigned long request);

// Pulses a reset line of the GPIO device: low for 20 ms, then high for 500 ms. 0, or -1 when it
// cannot be opened.
int dm365_reset_pulse(uint8_t line);

// Tells the driver that the co-processor boots, waits 45 s and tells it that it has.
void hold_for_boot(int fd);

// Tells the co-processor, when the link is open, that the device is about to be reset to its defaults.
void announce_factory_reset();

}  // namespace sentrel
