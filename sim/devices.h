// The board's devices: what their drivers answer.
#pragma once

#include <cstddef>
#include <cstdint>

#include "clock.h"
#include "journal.h"

namespace sim::devices {

// Each answers like a system call, -errno on failure.
struct Model {
    const char* path;     // one that ends in '/' stands for all below it
    bool present;         // without a script line about it
    const char* address;  // what the first byte of a read buffer selects, if anything
    int64_t (*read)(void* data, size_t size);
    int64_t (*write)(const void* data, size_t size);
    int64_t (*control)(int descriptor, uint32_t request, void* argument, record::Line& line);
};

const Model* find(const char* path);
void reset();  // power on; the files of those that exist are made

constexpr int64_t kDefaultRtc = 1767225600;  // 2026-01-01 00:00:00

// What the script sets and the models answer with.
struct State {
    uint8_t levels[256] = {};
    uint8_t outputs[256] = {};
    uint8_t expander = 0;
    uint8_t cmos[256] = {};
    int64_t rtc = kDefaultRtc;
    bool rtc_stopped = false;
    uint32_t alive = 0x6984;
    uint32_t link_status = 0;
    uint32_t query_2a = 0;
    char version[64] = {};  // name, second version at 32, first at 48
    uint32_t stalled = 0;
    clock::Nanos watchdog_period = 0;
    clock::Nanos fed = 0;
    clock::Nanos fed_by_others = clock::kNever;
    bool armed = false;
};

extern State state;

int64_t rtc_now();
void save_cmos();
clock::Nanos watchdog_deadline();

}  // namespace sim::devices
