// The daemon itself: start-up, and the loop that never ends.
#pragma once

#include <cstdint>

namespace sentrel {

class Supervisor {
  public:
    // Everything before the loop, in its order. False when the watchdog cannot be armed; all else is reported
    // and lived with.
    bool start_up(int argc, char** argv);

    // One pass of the loop, 200 ms and what its due jobs take.
    void pass();

  private:
    void count_pass();
    void sync_clock_when_due();
    void check_heartbeats_when_due();
    void power_recorder_modem_when_due();

    int appauto_ = 0;
    int product_type_ = 0;
    uint32_t clock_accumulator_ = 0;
    // These two stop counting where nothing looks at them any more.
    uint32_t heartbeat_ticks_ = 0;
    uint32_t passes_ = 0;
    bool recorder_modem_done_ = false;
};

}  // namespace sentrel
