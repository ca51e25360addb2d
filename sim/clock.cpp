#include "clock.h"

#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "board.h"
#include "clone.h"
#include "real.h"
#include "script.h"

namespace sim::clock {
namespace {

constexpr size_t kParticipants = 128;

constinit Participant table[kParticipants];
__thread Participant* own __attribute__((tls_model("initial-exec"))) = nullptr;
std::atomic<size_t> alive{0};
uint64_t orders = 0;
bool virtual_time = true;
bool sanitized = false;
bool thread_sanitized = false;
Nanos virtual_now = 0;
Nanos real_start = 0;

Nanos monotonic() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * kSecond + time.tv_nsec;
}

void futex(std::atomic<int>& word, int operation, int value) {
    real.syscall(SYS_futex, reinterpret_cast<int*>(&word), operation, value, nullptr, nullptr, 0);
}

void await_baton(Participant& me) {
    while (me.baton.load(std::memory_order_acquire) == 0) futex(me.baton, FUTEX_WAIT_PRIVATE, 0);
    me.baton.store(0, std::memory_order_relaxed);
    me.begun = true;
}

void make_ready(Participant& participant) {
    participant.state = State::kReady;
    participant.deadline = 0;
    participant.order = ++orders;
}

Participant* first(State state) {
    Participant* best = nullptr;
    for (Participant& each : table) {
        if (each.state != state) continue;
        if (best == nullptr || each.deadline < best->deadline ||
            (each.deadline == best->deadline && each.order < best->order)) {
            best = &each;
        }
    }
    return best;
}

// Moves time on until somebody can run.
Participant& choose() {
    for (;;) {
        if (Participant* ready = first(State::kReady)) return *ready;
        Participant* sleeper = first(State::kSleeping);
        const Nanos wake = sleeper != nullptr ? sleeper->deadline : kNever;
        const Nanos event = script::next_due();
        if (wake == kNever && event == kNever) board::end("stuck: everybody waits for somebody else", 5);
        if (event > wake) {
            virtual_now = std::max(virtual_now, wake);
            return *sleeper;
        }
        virtual_now = std::max(virtual_now, event);
        script::run_due();
    }
}

void hand_over(Participant& next) {
    next.state = State::kRunning;
    next.baton.store(1, std::memory_order_release);
    futex(next.baton, FUTEX_WAKE_PRIVATE, 1);
}

void give_up(Participant& me) {
    me.order = ++orders;
    Participant& next = choose();
    if (&next == &me) {
        me.state = State::kRunning;
        return;
    }
    hand_over(next);
    await_baton(me);
}

bool virtual_sleep(Participant& me, Nanos deadline) {
    if (alive == 1 && deadline < script::next_due()) {
        virtual_now = deadline;
        return true;
    }
    me.deadline = deadline;
    me.state = State::kSleeping;
    give_up(me);
    return !me.killed;
}

void real_wait(Nanos duration) {
    timespec time{};
    time.tv_sec = static_cast<time_t>(duration / kSecond);
    time.tv_nsec = static_cast<long>(duration % kSecond);
    real.clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

// In slices, so that events come in time and a killall is seen.
bool real_sleep(Participant* me, Nanos deadline) {
    for (;;) {
        script::run_due();
        if (me != nullptr && me->killed) return false;
        const Nanos time = now();
        if (time >= deadline) return true;
        const Nanos slice = std::min({deadline, script::next_due(), time + kSecond / 20});
        real_wait(std::max<Nanos>(slice - time, 1000));
    }
}

// Also when the thread ends through pthread_exit().
struct LeaveAtEnd {
    Participant* participant;
    ~LeaveAtEnd() { leave(participant); }
};

void* thread_main(void* slot) {
    auto* me = static_cast<Participant*>(slot);
    own = me;
    // A sanitizer's creator spins until its own start routine has run: there, the wait for the baton is put off to
    // the thread's first call.
    if (!sanitized) begin(me);
    const LeaveAtEnd at_end{me};
    return me->start(me->argument);
}

}  // namespace

void Lock::acquire() {
    while (taken_.exchange(true, std::memory_order_acquire)) sched_yield();
}

void start(bool in_virtual_time) {
    virtual_time = in_virtual_time;
    real_start = monotonic();
    thread_sanitized = dlsym(RTLD_DEFAULT, "__tsan_init") != nullptr;
    sanitized = thread_sanitized || dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
    own = add();
    own->thread = pthread_self();
    own->state = State::kRunning;
    own->begun = true;
}

void restart() {
    const Nanos gone = now();
    for (Participant& each : table) {
        if (each.state == State::kSleeping) each.deadline -= gone;
    }
    virtual_now = 0;
    real_start = monotonic();
}

bool is_virtual() { return virtual_time; }
bool shared() { return virtual_time && alive > 1; }
Nanos now() { return virtual_time ? virtual_now : monotonic() - real_start; }

Participant* self() {
    if (Participant* task = clone_task::on_stack(__builtin_frame_address(0))) return task;
    return own;
}

void enter() {
    if (!virtual_time) {
        script::run_due();
    } else if (alive > 1) {
        Participant* me = self();
        if (me != nullptr && !me->begun) await_baton(*me);
    }
}

bool sleep(Nanos duration) {
    Participant* me = self();
    const Nanos time = now();
    const Nanos deadline = duration < kNever - time ? time + std::max<Nanos>(duration, 0) : kNever;
    if (!virtual_time) return real_sleep(me, deadline);
    if (me != nullptr) return virtual_sleep(*me, deadline);
    real_wait(duration);
    return true;
}

Participant* add() {
    for (Participant& each : table) {
        if (each.state != State::kFree) continue;
        each.killed = each.begun = false;
        each.command[0] = '\0';
        each.baton.store(0);
        make_ready(each);
        ++alive;
        return &each;
    }
    return nullptr;
}

void remove(Participant* participant) {
    participant->state = State::kFree;
    --alive;
    for (Participant& each : table) {
        if (each.state == State::kWaiting && each.awaited == participant) make_ready(each);
    }
}

void adopt(Participant* participant) { own = participant; }

void begin(Participant* participant) {
    if (virtual_time) await_baton(*participant);
}

void leave(Participant* participant) {
    static Lock lock;
    if (virtual_time) {
        if (!participant->begun) await_baton(*participant);
        remove(participant);
        hand_over(choose());
    } else {
        const Guard guard(lock);
        remove(participant);
    }
}

void forget_others() {
    for (Participant& each : table) {
        if (&each != self()) each.state = State::kFree;
    }
    alive = 1;
}

bool under_thread_sanitizer() { return thread_sanitized; }
bool is_foreign(const pthread_attr_t* attributes) { return thread_sanitized && attributes == nullptr; }

int create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    Participant* made = add();
    if (made == nullptr) return real.pthread_create(thread, attributes, start, argument);
    made->start = start;
    made->argument = argument;
    const int error = real.pthread_create(thread, attributes, thread_main, made);
    if (error != 0) {
        remove(made);
    } else if (virtual_time) {
        made->thread = *thread;
    }
    return error;
}

int join(pthread_t thread, void** result) {
    Participant* me = self();
    for (Participant& each : table) {
        if (!virtual_time || me == nullptr || each.state == State::kFree || &each == me) continue;
        if (!pthread_equal(each.thread, thread)) continue;
        me->awaited = &each;
        me->state = State::kWaiting;
        give_up(*me);
        break;
    }
    return real.pthread_join(thread, result);
}

int lock_mutex(pthread_mutex_t* mutex) {
    if (!virtual_time || alive < 2) return real.pthread_mutex_lock(mutex);
    Participant* me = self();
    if (me == nullptr) return real.pthread_mutex_lock(mutex);
    for (;;) {
        const int error = real.pthread_mutex_trylock(mutex);
        if (error != EBUSY) return error;
        me->awaited = mutex;
        me->state = State::kWaiting;
        give_up(*me);
    }
}

int unlock_mutex(pthread_mutex_t* mutex) {
    const int error = real.pthread_mutex_unlock(mutex);
    if (!virtual_time || alive < 2) return error;
    Participant* waiter = nullptr;
    for (Participant& each : table) {
        if (each.state != State::kWaiting || each.awaited != mutex) continue;
        if (waiter == nullptr || each.order < waiter->order) waiter = &each;
    }
    if (waiter != nullptr) make_ready(*waiter);
    return error;
}

void kill_commands(const char* name) {
    for (Participant& each : table) {
        if (each.state == State::kFree || strcmp(each.command, name) != 0) continue;
        each.killed = true;
        if (virtual_time && each.state == State::kSleeping) make_ready(each);
    }
}

}  // namespace sim::clock
