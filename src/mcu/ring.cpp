#include "mcu/ring.h"

#include <algorithm>
#include <cstring>

namespace marl {
namespace {

uint32_t place(uint32_t counter) { return counter % MCU_RING_SIZE; }

// How many of `n` bytes lie before the end of the buffer; the others are at its start.
uint32_t before_end(uint32_t counter, uint32_t n) { return std::min(n, MCU_RING_SIZE - place(counter)); }

}  // namespace

uint32_t fifo_put(mcu_fifo& fifo, const uint8_t* data, uint32_t n) {
    n = std::min(n, fifo_room(fifo));
    const uint32_t first = before_end(fifo.in, n);
    memcpy(fifo.bytes + place(fifo.in), data, first);
    memcpy(fifo.bytes, data + first, n - first);
    fifo.in += n;
    return n;
}

uint32_t fifo_get(mcu_fifo& fifo, uint8_t* data, uint32_t n) {
    n = std::min(n, fifo_level(fifo));
    const uint32_t first = before_end(fifo.out, n);
    memcpy(data, fifo.bytes + place(fifo.out), first);
    memcpy(data + first, fifo.bytes, n - first);
    fifo.out += n;
    return n;
}

}  // namespace marl
