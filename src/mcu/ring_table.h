// Which command has a ring. initSpiUtilDev and deinitSpiUtilDev fill and empty the table.
#pragma once

#include <cstdint>

#include "libmarl/mcu.h"

namespace marl::mcu {

// The ring of a command, locked for the length of a scope. It cannot be freed meanwhile, so nobody keeps a
// pointer beyond it: whoever polls looks the ring up again each time.
class HeldRing {
  public:
    explicit HeldRing(uint32_t command);
    ~HeldRing();
    HeldRing(const HeldRing&) = delete;
    HeldRing& operator=(const HeldRing&) = delete;

    bool exists() const { return fifo_ != nullptr; }
    mcu_fifo& get() const { return *fifo_; }

  private:
    mcu_fifo* fifo_;
};

}  // namespace marl::mcu
