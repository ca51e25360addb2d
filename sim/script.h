// The script that drives a board: its files and answers, what happens at which time, which calls fail.
#pragma once

#include "clock.h"

namespace sim::script {

void reset();
// Runs the lines. Any that is wrong ends the board before: a test must not go on without it.
void apply(const char* text, const char* name);
void report_faults();         // those that never fired
bool tell(const char* line);  // does a line now; false when it is wrong, and has changed nothing
bool rehearses();             // lines are only looked at
const char* known_lines();

// Events, for the scheduler.
clock::Nanos next_due();
void run_due();
void end_at(double seconds);
void reset_board(const char* reason, clock::Nanos delay);
void watchdog_at(clock::Nanos time);  // when it bites, unless fed before

// What a scripted fault makes of a call of op ("open", "read", ...) on what: a negated error number, or the
// number of bytes it may transfer. kNoFault when nothing was said about it.
constexpr int64_t kNoFault = INT64_MAX;
int64_t fault_of(const char* what, const char* op, uint32_t request = 0);

// To be called before anything takes effect that outlasts the board's power: it may be cut here.
void count_change();

// The scripted answer to a shell command.
struct Answer {
    const char* command;
    int status;
    clock::Nanos duration;
};
const Answer* scripted_answer(const char* command);

// Does what the board makes of a shell command; the wait status, or a negated error number.
int64_t run_command(const char* text);

}  // namespace sim::script
