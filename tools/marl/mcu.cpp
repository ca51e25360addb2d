// The power switches of the microcontroller.
#include <libmarl.h>

#include <cstring>

#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

Exit unreachable(uint32_t power_switch) {
    return failed("the microcontroller has not answered for switch %u", power_switch);
}

void show(uint32_t power_switch, int state) {
    results::field("switch", power_switch);
    results::field("state", state);
}

}  // namespace

Exit mcu_status(const Request& request) {
    const uint32_t power_switch = request.number(0);
    uint8_t state = 0;
    if (initSpiUtilDev(power_switch) == nullptr || mcu_query_status(power_switch, &state) != 0) {
        return unreachable(power_switch);
    }
    results::print("%u\n", state);
    const results::JsonOnly rest;
    show(power_switch, state);
    return kDone;
}

Exit mcu_power(const Request& request) {
    const uint32_t power_switch = request.number(0);
    const bool on = strcmp(request.word(1), "on") == 0;
    if (initSpiUtilDev(power_switch) == nullptr) return unreachable(power_switch);
    if (PowerControl(power_switch, on ? 1 : 0) != 0)
        return failed("switch %u is not %s", power_switch, request.word(1));
    const results::JsonOnly rest;
    show(power_switch, on ? 1 : 0);
    return kDone;
}

}  // namespace tool
