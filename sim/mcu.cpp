// /dev/mcu, the microcontroller: what it says by itself, and what it answers to the frames written to it.
#include <mutex>

#include "devices.h"
#include "real.h"
#include "script.h"

namespace sim::devices::mcu {
namespace {

struct Answer {
    int64_t command, operation;
    std::string_view bytes;
};

constinit clock::Lock lock;
constinit script::Table<Answer, 64> answers{};
int ends[2] = {-1, -1};  // what it says lies in a pipe
uint8_t frame[7];
size_t frame_size = 0;

bool say_bytes(std::string_view bytes) {
    return real.write(ends[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
}

}  // namespace

void reset() {
    answers.used = frame_size = 0;
    for (const int end : ends) real.close(end);
    if (pipe2(ends, O_NONBLOCK | O_CLOEXEC) != 0) ends[0] = ends[1] = -1;
    for (int& end : ends) end = put_away(end);
}

bool say(Words& words) { return say_bytes(words.bytes()); }

bool answer(Words& words) {
    const int64_t command = words.number(), operation = words.number();
    return answers.add({command, operation, Words(script::keep(words.rest())).bytes()});
}

int64_t read(uint8_t* data, size_t size) { return or_errno(real.read(ends[0], data, size)); }

int64_t write(uint8_t* data, size_t size) {
    const std::lock_guard guard(lock);
    for (size_t i = 0; i < size; ++i) {
        frame[frame_size++] = data[i];
        if (frame_size < sizeof frame) continue;
        frame_size = 0;
        for (const Answer& each : answers)
            if (each.command == frame[1] % 32 && each.operation == frame[2] % 2) say_bytes(each.bytes);
    }
    return static_cast<int64_t>(size);
}

}  // namespace sim::devices::mcu
