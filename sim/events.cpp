// What the script has for later times, the heartbeats of its processes among it, and how the board ends.
#include <algorithm>
#include <mutex>
#include <utility>

#include "board.h"
#include "journal.h"
#include "real.h"
#include "script.h"

namespace sim::script {

constinit clock::Lock event_lock;

namespace {

using clock::kNever;
using clock::Nanos;

struct Event {
    Nanos at;  // kNever once it is over
    char* text;
    unsigned line;
    Nanos every;  // 0: an order
    Nanos until;
    uint32_t count;
    int descriptor;  // of the file that beats
};

Table<Event, 1024> events;
Nanos earliest = kNever;  // of them, so that a sleep need not look at each
Nanos watchdog_time = kNever;

void add(const Event& event) {
    if (!events.add(event)) board::end("cannot do its script: too many events", board::kBadScript);
    earliest = std::min(earliest, event.at);
}

// A file that beats for months is not opened anew every second, but whenever it is no longer there.
void beat(Event& event) {
    if (record::is_open()) record::Line("beat").add(" %s %u", event.text, event.count);
    struct stat info {};
    const bool is_there = event.descriptor >= 0 && fstat(event.descriptor, &info) == 0 && info.st_nlink > 0;
    if (!is_there) {
        if (event.descriptor >= 0) real.close(event.descriptor);
        event.descriptor = put_away(board::open_file(event.text, O_WRONLY | O_CREAT | O_NONBLOCK));
    }
    real.pwrite(event.descriptor, &event.count, sizeof event.count, 0);
}

void run_events(Nanos until) {
    while (earliest <= until && earliest != kNever) {
        const Nanos at = std::exchange(earliest, kNever);
        for (Event& event : events) {
            if (event.at == at) {
                event.at = at + event.every < event.until ? at + event.every : kNever;
                ++event.count;
                event.every > 0 ? beat(event) : run_order(event.line, event.text);
            }
            earliest = std::min(earliest, event.at);
        }
    }
}

}  // namespace

void add_order(Nanos at, unsigned line, const char* order) { add({at, keep(order), line, 0, 0, 0, -1}); }
bool add_beat(Words& words) {
    add({clock::now(), keep(words.next()), 0, words.number(), words.number(), 0, -1});
    return true;
}

void forget_events() {
    for (const Event& event : events) {
        if (event.descriptor >= 0) real.close(event.descriptor);
    }
    events.used = 0;
    earliest = watchdog_time = kNever;
}

Nanos next_due() { return std::min(earliest, watchdog_time); }

void run_due() {
    if (next_due() > clock::now()) return;
    const std::lock_guard guard(event_lock);
    const Nanos time = clock::now();
    run_events(time);
    if (watchdog_time <= time) board::end("reset watchdog", board::kReset);
}

void watchdog_at(Nanos time) { watchdog_time = time; }

}  // namespace sim::script
