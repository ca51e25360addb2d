#include "clock.h"

#include <dlfcn.h>
#include <linux/futex.h>
#include <sys/syscall.h>

#include <algorithm>
#include <iterator>
#include <mutex>
#include <tuple>

#include "board.h"
#include "clone.h"
#include "real.h"
#include "script.h"

namespace sim::clock {
namespace {

constexpr size_t kParticipants = 128;
constexpr Nanos kAtOnce = -1;  // the deadline of those that are ready: before any event

constinit Participant table[kParticipants];
Participant* table_end = table;  // behind the last that was ever used
__thread Participant* own __attribute__((tls_model("initial-exec"))) = nullptr;
constinit Lock table_lock;  // real time only: in virtual time the baton is one
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

void futex(int& word, int operation, int value) {
    real.syscall(SYS_futex, &word, operation, value, nullptr, nullptr, 0);
}

void await_baton(Participant& me) {
    const std::atomic_ref baton(me.baton);
    while (baton.load(std::memory_order_acquire) == 0) futex(me.baton, FUTEX_WAIT_PRIVATE, 0);
    baton.store(0, std::memory_order_relaxed);
    me.begun = true;
}

void hand_over(Participant& next) {
    std::atomic_ref(next.baton).store(1, std::memory_order_release);
    futex(next.baton, FUTEX_WAKE_PRIVATE, 1);
}

bool earlier(const Participant& one, const Participant& other) {
    if (one.used != other.used) return one.used;
    return std::tie(one.deadline, one.order) < std::tie(other.deadline, other.order);
}

// Moves time on until somebody can run. What the script has for a moment comes before those who sleep until
// then.
Participant& choose() {
    for (;;) {
        Participant* best = std::min_element(table, table_end, earlier);
        const Nanos wake = best->used ? best->deadline : kNever;
        const Nanos event = script::next_due();
        if (wake == kNever && event == kNever) {
            board::end("stuck: everybody waits for somebody else", board::kStuck);
        }
        virtual_now = std::max(virtual_now, std::min(wake, event));
        if (wake < event) return *best;
        script::run_due();
    }
}

void give_up(Participant& me, Nanos deadline) {
    me.deadline = deadline;
    me.order = ++orders;
    Participant& next = choose();
    if (&next == &me) return;
    hand_over(next);
    await_baton(me);
}

void real_wait(Nanos duration) {
    const timespec time{static_cast<time_t>(duration / kSecond), static_cast<long>(duration % kSecond)};
    real.clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
}

// In slices, so that events come in time and a killall is seen.
bool real_sleep(const Participant* me, Nanos deadline) {
    for (;;) {
        script::take_control();
        script::run_due();
        if (me != nullptr && me->killed) return false;
        const Nanos time = now();
        if (time >= deadline) return true;
        const Nanos slice = std::min({deadline, script::next_due(), time + kSecond / 20});
        real_wait(std::max<Nanos>(slice - time, 1000));
    }
}

void* thread_main(void* slot) {
    auto* me = static_cast<Participant*>(slot);
    own = me;
    // A sanitizer's creator spins until its own start routine has run: there, the wait for the baton is put
    // off to the thread's first call.
    if (!sanitized) begin(me);
    void* result = me->start(me->argument);
    leave(me);
    return result;
}

}  // namespace

void Lock::lock() {
    while (taken_.exchange(true, std::memory_order_acquire)) sched_yield();
}

void start(bool in_virtual_time) {
    virtual_time = in_virtual_time;
    real_start = monotonic();
    thread_sanitized = dlsym(RTLD_DEFAULT, "__tsan_init") != nullptr;
    sanitized = thread_sanitized || dlsym(RTLD_DEFAULT, "__asan_init") != nullptr;
    own = add();
    own->begun = true;
}

void restart() {
    for (Participant& each : table) {
        if (each.deadline > 0 && each.deadline < kNever) each.deadline -= now();
    }
    virtual_now = 0;
    real_start = monotonic();
}

bool shared() { return virtual_time && alive > 1; }
Nanos now() { return virtual_time ? virtual_now : monotonic() - real_start; }

Participant* self() {
    Participant* task = clone_task::on_stack(__builtin_frame_address(0));
    return task != nullptr ? task : own;
}

void enter() {
    if (!virtual_time) script::run_due();
    if (!shared()) return;
    Participant* me = self();
    if (me != nullptr && !me->begun) await_baton(*me);
}

bool sleep(Nanos duration) {
    Participant* me = self();
    const Nanos time = now();
    const Nanos deadline = duration < kNever - time ? time + std::max<Nanos>(duration, 0) : kNever;
    if (!virtual_time) return real_sleep(me, deadline);
    if (me == nullptr) {
        real_wait(duration);
    } else if (alive == 1 && deadline < script::next_due()) {
        virtual_now = deadline;  // nobody else and nothing else: months go by in seconds
    } else {
        give_up(*me, deadline);
    }
    return me == nullptr || !me->killed;
}

Participant* add() {
    const std::lock_guard guard(table_lock);
    for (Participant& each : table) {
        if (each.used) continue;
        each = {.used = true, .deadline = kAtOnce, .order = ++orders};
        table_end = std::max(table_end, &each + 1);
        ++alive;
        return &each;
    }
    return nullptr;
}

void remove(Participant* participant) {
    const std::lock_guard guard(table_lock);
    participant->used = false;
    --alive;
}

void adopt(Participant* participant) { own = participant; }

void begin(Participant* participant) {
    if (virtual_time) await_baton(*participant);
}

void leave(Participant* participant) {
    if (virtual_time && !participant->begun) await_baton(*participant);
    remove(participant);
    if (virtual_time) hand_over(choose());
}

bool under_thread_sanitizer() { return thread_sanitized; }

int create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
    Participant* made = add();
    if (made == nullptr) return EAGAIN;
    made->start = start;
    made->argument = argument;
    const int error = real.pthread_create(thread, attributes, thread_main, made);
    if (error != 0) remove(made);
    return error;
}

int lock_mutex(pthread_mutex_t* mutex) {
    Participant* me = shared() ? self() : nullptr;
    if (me == nullptr) return real.pthread_mutex_lock(mutex);
    for (;;) {
        const int error = real.pthread_mutex_trylock(mutex);
        if (error != EBUSY) return error;
        me->awaited = mutex;
        give_up(*me, kNever);
    }
}

int unlock_mutex(pthread_mutex_t* mutex) {
    const int error = real.pthread_mutex_unlock(mutex);
    if (!shared()) return error;
    for (Participant& each : table) {
        if (!each.used || each.awaited != mutex) continue;
        each.awaited = nullptr;
        each.deadline = kAtOnce;
    }
    return error;
}

void kill_commands(const char* name) {
    for (Participant& each : table) {
        if (!each.used || strcmp(each.command, name) != 0) continue;
        each.killed = true;
        each.deadline = kAtOnce;
    }
}

}  // namespace sim::clock
