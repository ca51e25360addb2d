// /dev/mcu, the microcontroller: what it says by itself, and what it answers to the frames written to it.
#include <cerrno>
#include <mutex>

#include "devices.h"
#include "words.h"

namespace sim::devices::mcu {
namespace {

// Bytes go one by one: a thread sanitizer sees block moves, but not the lock that guards them.
struct Queue {
    volatile uint8_t data[8192];
    size_t first, end;

    size_t size() const { return end - first; }
    bool add(int64_t byte) {
        if (size() == sizeof data) return false;
        data[end++ % sizeof data] = static_cast<uint8_t>(byte);
        return true;
    }
    int64_t take(uint8_t* to, size_t most) {
        size_t taken = 0;
        for (; taken < most && size() > 0; ++taken) to[taken] = data[first++ % sizeof data];
        return static_cast<int64_t>(taken);
    }
};

constinit clock::Lock lock;
Queue said, written, answers[32][2];  // answers by the command and the operation of a frame

bool add(Words& words, Queue& queue) {
    while (words.more()) {
        if (!queue.add(words.number())) return false;
    }
    return true;
}

}  // namespace

void reset() {
    const std::lock_guard guard(lock);
    said.first = said.end = written.first = written.end = 0;
    for (auto& command : answers) command[0].end = command[1].end = 0;
}

bool say(Words& words) {
    const std::lock_guard guard(lock);
    return add(words, said);
}

bool answer(Words& words) {
    const std::lock_guard guard(lock);
    auto& command = answers[words.number()];
    return add(words, command[words.number()]);
}

int64_t read(uint8_t* data, size_t size) {
    const std::lock_guard guard(lock);
    return said.size() > 0 ? said.take(data, size) : -EAGAIN;
}

int64_t write(uint8_t* data, size_t size) {
    const std::lock_guard guard(lock);
    for (size_t i = 0; i < size; ++i) written.add(data[i]);
    for (uint8_t frame[7]; written.size() >= sizeof frame;) {
        written.take(frame, sizeof frame);
        const Queue& queue = answers[frame[1] % 32][frame[2] % 2];
        for (size_t i = 0; i < queue.end; ++i) said.add(queue.data[i]);
    }
    return static_cast<int64_t>(size);
}

}  // namespace sim::devices::mcu
