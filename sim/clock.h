// Board time, and who may run in it.
//
// In virtual time exactly one participant (the initial thread, a thread, a clone task) runs: it holds the
// baton until it sleeps, ends or waits for a mutex. When nobody can run, time jumps to the next
// deadline. In real time everybody runs and sleeps as the kernel has it.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace sim::clock {

using Nanos = int64_t;
constexpr Nanos kSecond = 1'000'000'000;
constexpr Nanos kNever = INT64_MAX;

// A lock that may be taken on a clone task, which shares its thread-local storage with another thread.
class Lock {
  public:
    void lock();
    void unlock() { taken_.store(false, std::memory_order_release); }

  private:
    std::atomic<bool> taken_{false};
};

struct Participant {
    int baton = 0;
    bool used = false;
    bool begun = false;     // it has had its first turn
    bool killed = false;    // a killall ended the command it runs
    char command[32] = {};  // that command
    Nanos deadline = 0;     // when it can run again
    uint64_t order = 0;     // who came first among equals
    const pthread_mutex_t* awaited = nullptr;
    void* (*start)(void*) = nullptr;
    void* argument = nullptr;
};

void start(bool virtual_time);
void restart();  // back to 0; sleepers keep what is left of their sleep
Nanos now();
bool shared();  // several participants in virtual time: who runs is the board's to decide

// At each interposed call: in real time runs what is due.
void enter();
// Sleeps; false when a killall ended it early.
bool sleep(Nanos duration);

Participant* self();  // null: a thread the board does not know (a sanitizer's own)
Participant* add();   // null when there are too many
void remove(Participant* participant);
void adopt(Participant* participant);  // this thread is it
void begin(Participant* participant);  // on the new stack: waits for its turn
void leave(Participant* participant);  // its last act

bool under_thread_sanitizer();
int create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
int lock_mutex(pthread_mutex_t* mutex);
int unlock_mutex(pthread_mutex_t* mutex);

// Ends the scripted commands of that name.
void kill_commands(const char* name);

}  // namespace sim::clock
