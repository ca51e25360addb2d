#pragma once

namespace marl::mcu {

// The reader thread: reads the descriptor that `descriptor` holds as a number, and delivers the frames
// to the rings.
void* thread_spi_read(void* descriptor);

}  // namespace marl::mcu
