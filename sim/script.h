// The script that drives a board: its files and answers, what happens at which time, which calls fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "clock.h"

namespace sim::script {

void reset();
// Runs the lines; says on stderr which one makes no sense, and returns false.
bool apply(const char* text);

// Events, for the scheduler.
clock::Nanos next_due();
void run_due();
void reschedule();  // something that has a deadline of its own changed
void end_at(const char* seconds);
void reset_board(const char* reason, clock::Nanos delay);

// What a scripted fault makes of a call of op ("open", "read", ...) on what: a negated error number, or the
// number of bytes it may transfer. kNoFault when nothing was said about it.
constexpr int64_t kNoFault = INT64_MAX;
int64_t fault_of(const char* what, const char* op, uint32_t request = 0);

// The scripted answer to a shell command.
struct Answer {
    int status;
    clock::Nanos duration;
};
const Answer* scripted_answer(std::string_view command);

// Does what the board makes of a shell command; the wait status, or -1 with errno set.
int run_command(const char* text);

}  // namespace sim::script
