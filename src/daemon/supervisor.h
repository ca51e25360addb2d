// The daemon itself: start-up, and the loop that never ends.
#pragma once

#include <cstdint>

namespace sentrel {

class Supervisor {
  public:
    // Everything before the loop, in its order. False when the watchdog cannot be armed; all else is reported and
    // lived with.
    bool start_up(int argc, char** argv);

    // One pass of the loop, 200 ms and what its due jobs take.
    void pass();

  private:
    void count_pass();
    void sync_clock_when_due();
    void power_recorder_modem_when_due();

    int appauto_ = 0;
    uint32_t clock_accumulator_ = 0;
    uint32_t passes_ = 0;  // stops counting where nothing looks at it any more
    bool recorder_modem_done_ = false;
};

}  // namespace sentrel
