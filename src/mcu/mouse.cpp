#include <cstddef>

#include "base/diag.h"
#include "libmarl/mcu.h"

namespace {

constexpr uint8_t kMouseKey = 0x81;
constexpr uint8_t kAlternateKey = 0x80;

static_assert(sizeof(mcu_mouse_report) == 6 && offsetof(mcu_mouse_report, x) == 2 &&
              offsetof(mcu_mouse_report, y) == 4);
static_assert(sizeof(mouse_client) == sizeof(void*));

uint16_t big_endian(const uint8_t* bytes) { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }

}  // namespace

int get_mouse_report(mcu_mouse_report* report) {
    uint8_t frame[MCU_FRAME_SIZE];
    if (report == nullptr || get_spi_data(MCU_MOUSE, frame, sizeof frame) != MCU_FRAME_SIZE) return -1;
    report->key = frame[1] == MCU_MOUSE ? kMouseKey : kAlternateKey;
    report->x = big_endian(frame + 2);
    report->y = big_endian(frame + 4);
    marl::diag::out("x:%d,y:%d,key:%x\n", report->x, report->y, report->key);
    return 0;
}

int mouse_open(mouse_client* obj) {
    if (obj == nullptr) return -1;
    obj->fifo = initSpiUtilDev(MCU_MOUSE);
    return obj->fifo != nullptr ? 0 : -1;
}

int mouse_close(mouse_client* obj) {
    if (obj == nullptr || obj->fifo == nullptr) return -1;
    obj->fifo = nullptr;
    return deinitSpiUtilDev(MCU_MOUSE);
}
