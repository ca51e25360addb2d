// The script that drives a board, as orders (script/compiler.h): its files and answers, what happens at which time, which
// calls fail.
#pragma once

#include "clock.h"

namespace sim::script {

void reset();
// Does the orders of now, and keeps those for later. One that cannot be done ends the board.
void apply(char* orders);
void run_order(unsigned line, char* order);
void open_control(const char* path);  // a FIFO that brings orders while the board runs; null: none
void take_control();
char* keep(const char* text);  // for as long as the script is in force

// Events, for the scheduler. Whoever comes by orders while the board runs holds the lock.
extern clock::Lock event_lock;
clock::Nanos next_due();
void run_due();
void watchdog_at(clock::Nanos time);  // when it bites, unless fed before

// To be done later: an order or, where `every` says so, the beat of a process, a file whose first word it counts up.
void add_order(clock::Nanos at, unsigned line, const char* order);
void add_beat(const char* path, clock::Nanos every, clock::Nanos until);
void forget_events();

// What a scripted fault makes of a call of op ("open", "read", ...) on what: a negated error number, or the
// number of bytes it may transfer. kNoFault when nothing was said about it.
constexpr int64_t kNoFault = INT64_MAX;
struct Fault {
    const char* what;
    const char* op;
    uint32_t request;  // 0: any
    uint32_t from, to;
    int64_t effect;
    const char* text;
    uint32_t calls;
    bool fired;
};
void add_fault(const Fault& fault);
int64_t fault_of(const char* what, const char* op, uint32_t request = 0);
void report_faults();  // those that never fired
void forget_faults();

// From now on, about every so often, the next of some call fails in a way that fits it. 0: the storm is over.
void begin_storm(uint64_t seed, clock::Nanos every);
bool may_fail(const char* what);  // the script has a fault of it

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

// Room kept from the start: events run in the middle of the program's calls, where nothing may be allocated.
template <class T, size_t kMost>
struct Table {
    bool add(const T& item) { return used < kMost && (items[used++] = item, true); }
    T* begin() { return items; }
    T* end() { return items + used; }
    T items[kMost];
    size_t used;
};

}  // namespace sim::script
