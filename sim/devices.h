// The board's devices: what their drivers answer.
#pragma once

#include <sys/types.h>

#include "clock.h"
#include "journal.h"
#include "words.h"

namespace sim::devices {

// A read or write. Like all of a model it answers as a system call does, -errno on failure.
using Transfer = int64_t (*)(uint8_t* data, size_t size);

struct Model {
    const char* path;     // one that ends in '/' stands for all below it
    bool lasting;         // what is written to it is there after a power cut
    const char* address;  // what the first byte of a read buffer selects, if anything
    Transfer read;        // null: the real file's
    Transfer write;
};

const Model& find(const char* path);  // ordinary files and sockets have one too
int64_t control(const char* path, int descriptor, uint32_t request, void* argument, record::Line& line);
int64_t erase(int descriptor, uint32_t from, uint32_t length);
void reset();  // power on

// What the script sets and the models answer with.
struct State {
    uint8_t levels[256] = {};
    uint8_t outputs[256] = {};
    uint32_t expander = 0;
    bool rtc_stopped = false;
    int64_t rtc_start = 1767225600;  // what it shows at power on: 2026-01-01, in seconds of the epoch
    uint32_t alive = 0x6984;
    uint32_t link_status = 0;
    uint32_t query_2a = 0;
    char version[64] = {};  // name, second version at 32, first at 48
    uint32_t stalled = 0;
    bool network = false;                    // sockets are real
    uint32_t period_ms = 0;                  // of the watchdog
    bool armed = false;                      // the watchdog runs
    clock::Nanos fed_until = clock::kNever;  // other programs feed it up to then
    uint32_t fpga_id = 500;
    uint32_t link_ack = 0;  // acknowledges the last frame on the link
    uint32_t acks[2 + 16] =
        {};  // scripted acknowledgements come first: how many were taken, of how many, which
    bool acknowledges = true;
    uint32_t changes_to_cut = 0;  // 0: the power stays
    off_t environment_end = 4;    // where the next variable goes, behind a checksum
};

extern State state;

// SIZE TEXT: an event as the kernel sends it, filled up with NULs to that size. Without a listener it is lost.
bool send_event(Words& words);

namespace mcu {
void reset();
bool say(Words& words);     // BYTES: at once
bool answer(Words& words);  // COMMAND OPERATION BYTES: to each such frame from now on
int64_t read(uint8_t* data, size_t size);
int64_t write(uint8_t* data, size_t size);
}  // namespace mcu

}  // namespace sim::devices
