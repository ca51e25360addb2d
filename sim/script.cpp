#include "script.h"

#include <algorithm>
#include <climits>
#include <mutex>

#include "board.h"
#include "devices.h"
#include "launch/run.h"
#include "real.h"
#include "uevent.h"
#include "words.h"

namespace sim::script {
namespace {

using clock::kNever;
using clock::Nanos;
using devices::state;

constexpr size_t kLineSize = 1024;
constexpr size_t kTextSize = 256U << 10;
constexpr off_t kFlashSize = 0x20000;
constexpr const char* kEnvironment = "/dev/mtd/1";

// A line to be run, or the beat of a process: a file whose first word it counts up.
struct Event {
    Nanos at;  // kNever once it is over
    const char* text;
    Nanos every;  // 0: a line
    Nanos until;
    uint32_t count;
};

struct Fault {
    const char* what;
    const char* op;
    uint32_t request;  // 0: any
    int64_t effect;
    unsigned from;
    unsigned to;
    unsigned calls;
};

// Room kept from the start: events run in the middle of the program's calls, where nothing may be allocated.
template <class T, size_t kMost>
struct Table {
    bool add(const T& item) { return used < kMost && (items[used++] = item, true); }
    T* begin() { return items; }
    T* end() { return items + used; }
    T items[kMost];
    size_t used;
};

Table<Event, 512> events;
Table<Fault, 64> faults;
Table<Answer, 64> answers;

char kept_text[kTextSize];
size_t kept = 0;
size_t environment_used = 0;
Nanos end_time = kNever;
Nanos reset_time = kNever;
Nanos watchdog_time = kNever;
const char* reset_reason = "";
uint32_t changes_to_cut = 0;  // 0: the power stays
bool starting = false;        // the script's first pass over a board
clock::Lock lock;

char* keep(const char* text) {
    const size_t size = strlen(text) + 1;
    if (kept + size > kTextSize) board::end("has no room for its script", board::kBadScript);
    char* copy = static_cast<char*>(memcpy(kept_text + kept, text, size));
    kept += size;
    return copy;
}

// --- Files

bool starts(const char* text, const char* prefix) { return strncmp(text, prefix, strlen(prefix)) == 0; }

// What survives a restart of the board is not made a second time.
bool survives(const char* path) {
    if (!starting || !board::was_made_before()) return false;
    return starts(path, "/mnt") || starts(path, "/dev/mtd") || starts(path, "/etc") || starts(path, "/.");
}

bool put(const char* path, int flags, const void* data, size_t size, off_t offset = 0) {
    return survives(path) || board::write_file(path, flags | O_CREAT, data, size, offset);
}

// Does something with a file of the board by its place on the host.
template <class Body>
bool at_place(const char* path, Body body) {
    char there[board::kPathSize];
    return survives(path) || (board::place_inside(path, there) && body(there));
}

bool resize(const char* path, off_t size) {
    return at_place(path, [size](const char* there) { return real.truncate(there, size) == 0; });
}

bool remove_file(const char* path) {
    return at_place(path, [](const char* there) { return real.unlink(there) == 0 || errno == ENOENT; });
}

// Makes of \n and \xHH what they stand for; the new size.
size_t unescape(char* text) {
    char* out = text;
    for (const char* from = text; *from != '\0'; ++out) {
        unsigned byte = 0;
        int length = 2;
        if (strncmp(from, "\\n", 2) == 0) {
            byte = '\n';
        } else if (sscanf(from, "\\x%2x%n", &byte, &length) != 1) {
            byte = static_cast<unsigned char>(*from);
            length = 1;
        }
        *out = static_cast<char>(byte);
        from += length;
    }
    return static_cast<size_t>(out - text);
}

bool put_text(Words& words, int flags, bool newline) {
    const char* path = words.next();
    char* text = words.rest();
    size_t size = unescape(text);
    if (size > 0 && newline) text[size++] = '\n';  // over the end, which is no longer needed
    return put(path, flags, text, size);
}

bool do_uevent(Words& words, size_t size) {
    char* text = words.rest();
    return uevent::send(text, unescape(text), size);
}

bool do_word(Words& words) {
    const char* path = words.next();
    const uint32_t value = words.number();
    return put(path, 0, &value, sizeof value);
}

bool do_truncate(Words& words) {
    const char* path = words.next();
    return resize(path, words.size());
}

// The first four bytes are a checksum that readers do not look at.
bool do_env(Words& words) {
    const char* text = words.rest();
    const size_t size = strlen(text) + 1;
    const auto offset = static_cast<off_t>(4 + environment_used);
    environment_used += size;
    return put(kEnvironment, 0, text, size, offset) && resize(kEnvironment, kFlashSize);
}

bool do_short_env(Words& words) { return put(kEnvironment, 0, "", 0) && resize(kEnvironment, words.size()); }

// --- Devices

// A first place and the bytes from there on.
template <size_t kSize>
bool put_bytes(Words& words, uint8_t (&bytes)[kSize], int base) {
    size_t at = words.number();
    do {
        if (at >= kSize) return false;
        bytes[at++] = static_cast<uint8_t>(words.number(base));
    } while (words.more());
    return true;
}

bool do_cmos(Words& words) {
    if (survives(devices::kCmosFile)) return words.rest() != nullptr;
    return put_bytes(words, state.cmos, 16) && devices::save_cmos();
}

bool do_version(Words& words) {
    char* version = state.version;
    memset(version, 0, sizeof state.version);
    return sscanf(words.rest(), "%31s %15s %15s", version, version + 48, version + 32) == 3;
}

bool do_acks(Words& words) {
    state.acks_taken = 0;
    for (state.acks_used = 0; words.more(); ++state.acks_used) {
        if (state.acks_used == std::size(state.acks)) return false;
        state.acks[state.acks_used] = words.number(16);
    }
    return true;
}

// --- Commands, faults, time

bool do_command(Words& words) {
    const char* name = keep(words.next());
    const int status = static_cast<int>(words.number()) << 8;
    return answers.add({name, status, words.more() ? words.seconds() : 0});
}

int64_t error_named(const char* name) {
    for (int number = 1; number < 140; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && strcmp(name, known) == 0) return -number;
    }
    return kNoFault;
}

// fault WHAT OP[:REQUEST] N|N..M|N+ ERRNO|short BYTES
bool do_fault(Words& words) {
    Fault fault{};
    fault.what = keep(words.next());
    char* op = keep(words.next());
    fault.op = op;
    if (char* colon = strchr(op, ':')) {
        *colon = '\0';
        fault.request = words.number(colon + 1);
    }
    const char* range = words.next();
    const int numbers = sscanf(range, "%u..%u", &fault.from, &fault.to);
    if (numbers == 1) fault.to = strchr(range, '+') != nullptr ? UINT_MAX : fault.from;
    fault.effect = words.is("short") ? static_cast<int64_t>(words.number()) : error_named(words.next());
    return numbers >= 1 && fault.from > 0 && fault.effect != kNoFault && faults.add(fault);
}

bool do_beat(Words& words) {
    Event beat{clock::now(), keep(words.next()), clock::kSecond, kNever, 0};
    while (words.more()) {
        const bool until = words.is("until");
        if (!until && !words.is("every")) return false;
        (until ? beat.until : beat.every) = words.seconds();
    }
    return beat.every > 0 && events.add(beat);
}

bool do_at(Words& words) {
    const Nanos at = words.seconds();
    return events.add({at, keep(words.rest()), 0, 0, 0});
}

// The machine's own interfaces are none of the board's.
bool do_network(Words&) {
    if (!launch::has_own_network())
        board::end("has no network namespace of its own for \"network real\"", board::kBadScript);
    return state.network = true;
}

// What a line begins with, and what it does or, where that is all, which number it sets.
struct Verb {
    const char* name;
    bool (*run)(Words& words);
    uint32_t* number = nullptr;
};

constexpr Verb kVerbs[] = {
    {"describe", [](Words& words) { return *words.rest() != 0; }},
    {"env", do_env},
    {"envimage missing", [](Words&) { return remove_file(kEnvironment); }},
    {"envimage short:", do_short_env},
    {"file", [](Words& words) { return put_text(words, O_APPEND, true); }},
    {"file!", [](Words& words) { return put_text(words, O_TRUNC, false); }},
    {"uevent padded:", [](Words& words) { return do_uevent(words, words.number()); }},
    {"uevent", [](Words& words) { return do_uevent(words, 0); }},
    {"word", do_word},
    {"truncate", do_truncate},
    {"delete", [](Words& words) { return remove_file(words.next()); }},
    {"missing", [](Words& words) { return remove_file(words.next()); }},
    {"present", [](Words& words) { return board::write_file(words.next(), O_CREAT, "", 0); }},
    {"level", [](Words& words) { return put_bytes(words, state.levels, 10); }},
    {"cmos", do_cmos},
    {"spi0 version", do_version},
    {"spi0 acks", do_acks},
    {"spi0 mute", [](Words&) { return !(state.acknowledges = false); }},
    {"mcu say", devices::mcu::say},
    {"mcu answer", devices::mcu::answer},
    {"wdt fed", [](Words& words) { return (state.fed_until = words.seconds()) >= 0; }},
    {"fpga id", nullptr, &state.fpga_id},
    {"command", do_command},
    {"fault", do_fault},
    {"beat", do_beat},
    {"at", do_at},
    {"rtc stopped", [](Words&) { return state.rtc_stopped = true; }},
    {"network real", do_network},
    {"expander", nullptr, &state.expander},
    {"spi0 alive", nullptr, &state.alive},
    {"spi0 status", nullptr, &state.link_status},
    {"spi0 2a", nullptr, &state.query_2a},
    {"vpfe stalled", nullptr, &state.stalled},
    {"cut", nullptr, &changes_to_cut},
};

bool done(char* line) {
    if (line[strspn(line, " \t")] == '\0' || line[0] == '#') return true;
    Words words(line);
    for (const Verb& each : kVerbs) {
        if (!words.is(each.name)) continue;
        if (each.number != nullptr) *each.number = words.number();
        return (each.run == nullptr || each.run(words)) && words.good();
    }
    return false;
}

void run_line(const char* text, size_t size) {
    char line[kLineSize];
    snprintf(line, sizeof line, "%.*s", static_cast<int>(size), text);
    if (size < kLineSize && done(line)) return;
    snprintf(line, sizeof line, "cannot do \"%.*s\"", static_cast<int>(size), text);
    board::end(line, board::kBadScript);
}

Nanos earliest_event() {
    Nanos earliest = kNever;
    for (const Event& event : events) earliest = std::min(earliest, event.at);
    return earliest;
}

void run_events(Nanos until) {
    for (Nanos at = earliest_event(); at <= until && at != kNever; at = earliest_event()) {
        for (Event& event : events) {
            if (event.at != at) continue;
            event.at = at + event.every < event.until ? at + event.every : kNever;
            ++event.count;
            if (event.every == 0) run_line(event.text, strlen(event.text));
            if (event.every > 0) board::write_file(event.text, O_CREAT, &event.count, sizeof event.count);
        }
    }
}

}  // namespace

void reset() {
    events.used = faults.used = answers.used = kept = environment_used = 0;
    changes_to_cut = 0;
    end_time = reset_time = watchdog_time = kNever;
    starting = true;
}

void apply(const char* text) {
    for (size_t length = 0; *text != '\0'; text += strspn(text, "\n")) {
        length = strcspn(text, "\n");
        run_line(text, length);
        text += length;
    }
    starting = false;
    run_due();
}

Nanos next_due() { return std::min({earliest_event(), reset_time, watchdog_time, end_time}); }

void run_due() {
    if (next_due() > clock::now()) return;
    const std::lock_guard guard(lock);
    const Nanos time = clock::now();
    run_events(time);
    if (reset_time <= time) board::end(reset_reason, board::kReset);
    if (watchdog_time <= time) board::end("reset watchdog", board::kReset);
    if (end_time <= time) board::end("end time", board::kEndOfTime);
}

void end_at(double seconds) { end_time = static_cast<Nanos>(std::min(seconds, 9e9) * 1e6 + 0.5) * 1000; }

void reset_board(const char* reason, Nanos delay) {
    if (reset_time != kNever) return;
    reset_reason = reason;
    reset_time = clock::now() + delay;
}

void watchdog_at(Nanos time) { watchdog_time = time; }

int64_t fault_of(const char* what, const char* op, uint32_t request) {
    int64_t effect = kNoFault;
    if (faults.used == 0) return effect;
    const std::lock_guard guard(lock);
    for (Fault& each : faults) {
        const bool same_what = strcmp(each.what, "*") == 0 || strcmp(each.what, what) == 0;
        if (!same_what || strcmp(each.op, op) != 0) continue;
        if (each.request != 0 && each.request != request) continue;
        ++each.calls;
        if (each.calls >= each.from && each.calls <= each.to && effect == kNoFault) effect = each.effect;
    }
    return effect;
}

void count_change() {
    if (changes_to_cut > 0 && --changes_to_cut == 0) board::end("cut", board::kCut);
}

const Answer* scripted_answer(const char* command) {
    const Answer* last = nullptr;  // a later line overrides
    for (const Answer& each : answers) {
        if (strcmp(each.command, command) == 0) last = &each;
    }
    return last;
}

}  // namespace sim::script
