#include "mcu/ring_table.h"

#include <cstdlib>

#include "mcu/common.h"
#include "mcu/ring.h"

namespace {

using namespace marl;

// The slots are written by initSpiUtilDev and deinitSpiUtilDev and read by HeldRing, all under `lock`. It is
// taken before the lock of a ring, never after.
struct {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    mcu_fifo* slots[MCU_COMMAND_MAX + 1] = {};
} constinit g_table;

mcu_fifo*& slot_of(uint32_t command) {
    return g_table.slots[command == MCU_MOUSE_ALTERNATE ? MCU_MOUSE : command];
}

mcu_fifo* fifo_malloc() {
    auto* fifo = static_cast<mcu_fifo*>(malloc(sizeof(mcu_fifo)));
    if (fifo == nullptr) {
        diag::out("libMARL::%s::fifo_malloc failed!\n", "initSpiUtilDev");
        return nullptr;
    }
    pthread_mutex_init(&fifo->lock, nullptr);
    fifo->in = fifo->out = 0;
    return fifo;
}

void fifo_free(mcu_fifo* fifo) {
    // Somebody may have found the ring just before its slot was emptied. He has held its lock since then, and
    // nobody waits for it: whoever waits holds the table's lock as well.
    pthread_mutex_lock(&fifo->lock);
    pthread_mutex_unlock(&fifo->lock);
    pthread_mutex_destroy(&fifo->lock);
    free(fifo);
}

}  // namespace

namespace marl::mcu {

HeldRing::HeldRing(uint32_t command) : fifo_(nullptr) {
    if (command > MCU_COMMAND_MAX) return;
    const MutexLock lock(g_table.lock);
    fifo_ = slot_of(command);
    if (fifo_ != nullptr) pthread_mutex_lock(&fifo_->lock);
}

HeldRing::~HeldRing() {
    if (fifo_ != nullptr) pthread_mutex_unlock(&fifo_->lock);
}

}  // namespace marl::mcu

mcu_fifo* initSpiUtilDev(uint32_t cmd) {
    if (cmd > MCU_COMMAND_MAX) {
        mcu::report_assertion();
        return nullptr;
    }
    const MutexLock lock(g_table.lock);
    mcu_fifo*& slot = slot_of(cmd);
    if (slot == nullptr) slot = fifo_malloc();
    return slot;
}

int deinitSpiUtilDev(uint32_t cmd) {
    if (cmd > MCU_COMMAND_MAX) return -1;
    const MutexLock lock(g_table.lock);
    mcu_fifo*& slot = slot_of(cmd);
    if (slot != nullptr) fifo_free(slot);
    slot = nullptr;
    return 0;
}
