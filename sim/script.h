// The script that drives a board, as orders (script/compiler.h): its files and answers, what happens at which time, which
// calls fail.
#pragma once

#include "clock.h"
#include "words.h"

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

void add_order(clock::Nanos at, unsigned line, const char* order);  // to be done later
bool add_beat(Words& words);  // PATH EVERY UNTIL: of a process, that counts up the first word of a file
void forget_events();

// What a scripted fault makes of a call of op ("open", "read", ...) on what: a negated error number, or the
// number of bytes it may transfer. kNoFault when nothing was said about it.
constexpr int64_t kNoFault = INT64_MAX;
bool add_fault(Words& words);    // WHAT CALL REQUEST FROM TO EFFECT TEXT
bool begin_storm(Words& words);  // SEED NANOSECONDS
int64_t fault_of(const char* what, const char* op, uint32_t request = 0);
void report_faults();  // those that never fired
void forget_faults();

bool may_fail(const char* what);  // the script has a fault of it

// To be called before anything takes effect that outlasts the board's power: it may be cut here.
void count_change();

bool add_answer(Words& words);  // to a shell command: NAME STATUS NANOSECONDS
void forget_answers();

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
