// The ring buffer of one command. Nothing here locks: whoever touches a ring holds its mutex.
#pragma once

#include <pthread.h>

#include <bit>
#include <cstdint>

#include "libmarl/mcu.h"

// The counters run on and wrap with their type. Their distance stays right, and so does their place in the
// buffer, because its size divides 2^32.
struct mcu_fifo {
    pthread_mutex_t lock;
    uint32_t in;   // bytes ever put
    uint32_t out;  // bytes ever taken
    uint8_t bytes[MCU_RING_SIZE];
};

static_assert(std::has_single_bit(unsigned{MCU_RING_SIZE}));

namespace marl {

inline uint32_t fifo_level(const mcu_fifo& fifo) { return fifo.in - fifo.out; }
inline uint32_t fifo_room(const mcu_fifo& fifo) { return MCU_RING_SIZE - fifo_level(fifo); }

// Stores or takes as many of `n` bytes as there are room or bytes for, and returns the count.
uint32_t fifo_put(mcu_fifo& fifo, const uint8_t* data, uint32_t n);
uint32_t fifo_get(mcu_fifo& fifo, uint8_t* data, uint32_t n);

}  // namespace marl
