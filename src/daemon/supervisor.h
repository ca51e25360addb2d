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
    void take_product_type();
    void count_pass();
    void identify_when_due();
    void sync_clock_when_due();
    void check_heartbeats_when_due();
    void power_recorder_modem_when_due();

    int32_t period_s_ = 0;
    int appauto_ = 0;
    int product_type_ = 0;
    uint32_t clock_accumulator_ = 0;
    // These two stop counting where nothing looks at them any more.
    uint32_t heartbeat_ticks_ = 0;
    uint32_t passes_ = 0;
    bool recorder_modem_done_ = false;
    bool identified_ = false;
    uint32_t identity_pause_ = 0;      // passes between two identifications
    uint32_t identity_countdown_ = 0;  // passes left
};

}  // namespace sentrel
