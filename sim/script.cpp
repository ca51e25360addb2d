#include "script.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "board.h"
#include "devices.h"
#include "real.h"
#include "words.h"

namespace sim::script {
namespace {

using clock::kNever;
using clock::Nanos;
using devices::state;

constexpr size_t kLineSize = 1024;
constexpr size_t kTextSize = 256U << 10;
constexpr size_t kFlashSize = 0x20000;
constexpr size_t kEnvironmentSize = 0x4000;
constexpr const char* kEnvironment = "/dev/mtd/1";

struct Event {
    Nanos at = 0;  // kNever once it ran
    const char* line = nullptr;
};

struct Beat {
    const char* path;
    Nanos every;
    Nanos next;
    Nanos until;
    uint32_t count;
};

struct Fault {
    const char* what;
    std::string_view op;
    uint32_t request;  // 0: any
    int64_t effect;
    uint64_t from;
    uint64_t to;
    uint64_t calls;
};

struct Command {
    std::string_view name;
    Answer answer;
};

// Room kept from the start: events run in the middle of the program's calls, where nothing may be allocated.
template <class T, size_t kMost>
class Table {
public:
    bool add(const T& item) {
        if (used_ == kMost) return false;
        items_[used_++] = item;
        return true;
    }
    void clear() { used_ = 0; }
    T* begin() { return items_; }
    T* end() { return items_ + used_; }

private:
    T items_[kMost]{};
    size_t used_ = 0;
};

constinit Table<Event, 512> events;
constinit Table<Beat, 16> beats;
constinit Table<Fault, 64> faults;
constinit Table<Command, 64> commands;

char kept_text[kTextSize];
size_t kept = 0;
unsigned char environment[kFlashSize];
size_t environment_used = 0;
Nanos end_time = kNever;
Nanos reset_time = kNever;
const char* reset_reason = "";
Nanos due = kNever;
bool starting = false;  // the script's first pass over a board
clock::Lock lock;
clock::Lock due_lock;  // and not an atomic: ARMv5 has none of 8 bytes

// For the one-line verbs.
template <class T, class Value>
bool set(T& target, Value value) {
    target = static_cast<T>(value);
    return true;
}

const char* keep(std::string_view text) {
    if (kept + text.size() + 1 > kTextSize) return "";
    char* copy = kept_text + kept;
    memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    kept += text.size() + 1;
    return copy;
}

// What survives a restart of the board is not made a second time.
bool survives(std::string_view path) {
    return starting && board::was_made_before() && (path.starts_with("/mnt") || path.starts_with("/dev/mtd") ||
                                                    path.starts_with("/etc") || path.starts_with("/."));
}

bool put(std::string_view path, int flags, std::string_view data) {
    return survives(path) || board::write_file(Text(path), flags | O_CREAT, data.data(), data.size());
}

// --- The environment image

uint32_t crc32(const unsigned char* data, size_t size) {
    uint32_t crc = ~0U;
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

bool write_environment(size_t size) {
    const uint32_t crc = crc32(environment + 4, kEnvironmentSize - 4);
    for (unsigned i = 0; i < 4; ++i) environment[i] = static_cast<unsigned char>(crc >> (8 * i));
    return put(kEnvironment, O_TRUNC, {reinterpret_cast<char*>(environment), size});
}

bool do_env(Words& words) {
    const std::string_view text = words.rest();
    if (environment_used + text.size() + 2 > kEnvironmentSize) return false;
    memcpy(environment + environment_used, text.data(), text.size());
    environment_used += text.size() + 1;
    return write_environment(kFlashSize);
}

bool do_envimage(Words& words) {
    const std::string_view kind = words.next();
    if (kind == "erased") {
        memset(environment, 0xFF, kFlashSize);
        return put(kEnvironment, O_TRUNC, {reinterpret_cast<char*>(environment), kFlashSize});
    }
    char path[board::kPathSize];
    if (kind == "missing") return board::place_inside(kEnvironment, path) && (real.unlink(path) == 0 || errno == ENOENT);
    if (kind.starts_with("short:")) return write_environment(std::min(kFlashSize, Words::number(kind.substr(6))));
    return kind == "empty" && write_environment(kFlashSize);
}

// --- Files

bool write_text(Words& words, int flags, bool newline) {
    const std::string_view path = words.next();
    char text[kLineSize];
    size_t size = words.unescaped_rest(text);
    if (size > 0 && newline) text[size++] = '\n';
    return put(path, flags, {text, size});
}

bool do_delete(Words& words) {
    char path[board::kPathSize];
    const std::string_view name = words.next();
    if (survives(name)) return true;
    return board::place_inside(Text(name), path) && (real.unlink(path) == 0 || errno == ENOENT);
}

bool do_truncate(Words& words) {
    char path[board::kPathSize];
    const std::string_view name = words.next();
    if (survives(name)) return true;
    return board::place_inside(Text(name), path) && truncate(path, static_cast<off_t>(words.number())) == 0;
}

bool do_word(Words& words) {
    const std::string_view path = words.next();
    const auto value = static_cast<uint32_t>(words.number());
    return survives(path) || board::write_file(Text(path), O_CREAT, &value, sizeof value);
}

// --- Devices

bool do_level(Words& words) {
    const size_t line = words.number();
    if (line >= sizeof state.levels) return false;
    state.levels[line] = static_cast<uint8_t>(words.number());
    return true;
}

bool do_rtc(Words& words) {
    int year = 0, hour = 0, minute = 0, second = 0;
    unsigned month = 0, day = 0;
    if (words.rest() == "stopped") {
        state.rtc = devices::rtc_now();
        state.rtc_stopped = true;
        return true;
    }
    const char* text = words.rest().data();
    if (sscanf(text, "%d-%u-%u %d:%d:%d", &year, &month, &day, &hour, &minute, &second) != 6) return false;
    using namespace std::chrono;
    const sys_days date{std::chrono::year{year} / std::chrono::month{month} / std::chrono::day{day}};
    state.rtc = date.time_since_epoch() / seconds{1} + hour * 3600 + minute * 60 + second;
    state.rtc_stopped = false;
    return true;
}

bool do_cmos(Words& words) {
    if (survives("/.cmos")) return true;
    size_t offset = words.number();
    for (std::string_view byte = words.next(); !byte.empty(); byte = words.next()) {
        if (offset >= sizeof state.cmos) return false;
        state.cmos[offset++] = static_cast<uint8_t>(Words::number(byte, 16));
    }
    devices::save_cmos();
    return true;
}

bool do_spi0(Words& words) {
    const std::string_view what = words.next();
    if (what == "version") {
        memset(state.version, 0, sizeof state.version);
        char* version = state.version;
        return sscanf(words.rest().data(), "%31s %15s %15s", version, version + 48, version + 32) == 3;
    }
    uint32_t* value = what == "alive" ? &state.alive : what == "status" ? &state.link_status : &state.query_2a;
    *value = static_cast<uint32_t>(words.number());
    return what == "alive" || what == "status" || what == "2a";
}

// --- Commands, faults, time

bool do_command(Words& words) {
    const char* name = keep(words.next());
    const auto status = static_cast<int>(words.number());
    const Nanos duration = words.rest().empty() ? 0 : words.seconds();
    for (Command& each : commands) {
        if (each.name != name) continue;
        each.answer = {status << 8, duration};
        return true;
    }
    return commands.add({name, {status << 8, duration}});
}

int64_t error_named(std::string_view name) {
    for (int number = 1; number < 140; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && name == known) return -number;
    }
    return 0;
}

bool do_fault(Words& words) {
    Fault fault{};
    fault.what = keep(words.next());
    const std::string_view op = words.next();
    const size_t colon = op.find(':');
    fault.op = keep(op.substr(0, colon));
    fault.request = colon == op.npos ? 0 : static_cast<uint32_t>(Words::number(op.substr(colon + 1)));
    const std::string_view range = words.next();
    fault.from = fault.to = Words::number(range);
    if (range.ends_with('+')) fault.to = UINT64_MAX;
    if (const size_t dots = range.find(".."); dots != range.npos) fault.to = Words::number(range.substr(dots + 2));
    const std::string_view effect = words.next();
    fault.effect = effect == "short" ? static_cast<int64_t>(words.number()) : error_named(effect);
    return fault.from > 0 && (effect == "short" || fault.effect != 0) && faults.add(fault);
}

bool do_beat(Words& words) {
    Beat beat{keep(words.next()), clock::kSecond, clock::now(), kNever, 0};
    for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
        const Nanos value = words.seconds();
        if (word == "every" && value > 0) beat.every = value;
        else if (word == "from") beat.next = value;
        else if (word == "until") beat.until = value;
        else return false;
    }
    return beats.add(beat);
}

bool do_at(Words& words) {
    const Nanos at = words.seconds();
    return events.add({at, keep(words.rest())});
}

struct Verb {
    std::string_view name;
    bool (*run)(Words& words);
};

constexpr Verb kVerbs[] = {
    {"describe", [](Words&) { return true; }},
    {"env", do_env},
    {"envimage", do_envimage},
    {"file", [](Words& words) { return write_text(words, O_APPEND, true); }},
    {"file!", [](Words& words) { return write_text(words, O_TRUNC, false); }},
    {"delete", do_delete},
    {"truncate", do_truncate},
    {"word", do_word},
    {"missing", do_delete},
    {"present", [](Words& words) { return board::write_file(Text(words.next()), O_CREAT, "", 0); }},
    {"level", do_level},
    {"expander", [](Words& words) { return set(state.expander, words.number()); }},
    {"rtc", do_rtc},
    {"cmos", do_cmos},
    {"spi0", do_spi0},
    {"vpfe", [](Words& words) { return words.next() == "stalled" && set(state.stalled, words.number()); }},
    {"wdt", [](Words& words) { return words.next() == "external" && set(state.fed_by_others, words.seconds()); }},
    {"command", do_command},
    {"fault", do_fault},
    {"beat", do_beat},
    {"at", do_at},
    {"for", [](Words& words) { return set(end_time, words.seconds()); }},
};

bool run_line(const char* text) {
    Words words(text);
    const std::string_view verb = words.next();
    if (verb.empty() || verb.front() == '#') return true;
    for (const Verb& each : kVerbs) {
        if (each.name == verb && each.run(words)) return true;
        if (each.name == verb) break;
    }
    char message[kLineSize + 64];
    const int size = snprintf(message, sizeof message, "simulated board: cannot do \"%s\"\n", text);
    if (real.write(2, message, static_cast<size_t>(size)) < 0) return false;
    return false;
}

Nanos earliest_event() {
    Nanos earliest = kNever;
    for (const Event& event : events) earliest = std::min(earliest, event.at);
    for (const Beat& beat : beats) earliest = std::min(earliest, beat.next);
    return earliest;
}

void run_events(Nanos until) {
    for (Nanos at = earliest_event(); at <= until && at != kNever; at = earliest_event()) {
        for (Event& event : events) {
            if (event.at != at) continue;
            event.at = kNever;
            run_line(event.line);
        }
        for (Beat& beat : beats) {
            if (beat.next != at) continue;
            ++beat.count;
            board::write_file(beat.path, O_CREAT, &beat.count, sizeof beat.count);
            beat.next = at + beat.every < beat.until ? at + beat.every : kNever;
        }
    }
}

}  // namespace

void reset() {
    events.clear();
    beats.clear();
    faults.clear();
    commands.clear();
    kept = 0;
    memset(environment, 0, sizeof environment);
    environment_used = 4;
    end_time = reset_time = kNever;
    starting = true;
}

bool apply(const char* text) {
    char line[kLineSize];
    bool good = true;
    while (*text != '\0') {
        const size_t length = strcspn(text, "\n");
        snprintf(line, sizeof line, "%.*s", static_cast<int>(std::min(length, kLineSize - 1)), text);
        good = run_line(line) && good;
        text += length + (text[length] == '\n' ? 1 : 0);
    }
    starting = false;
    reschedule();
    run_due();
    return good;
}

Nanos next_due() {
    const clock::Guard guard(due_lock);
    return due;
}

void reschedule() {
    const clock::Guard guard(due_lock);
    due = std::min({earliest_event(), devices::watchdog_deadline(), reset_time, end_time});
}

void run_due() {
    if (next_due() > clock::now()) return;
    const clock::Guard guard(lock);
    const Nanos time = clock::now();
    run_events(time);
    if (devices::watchdog_deadline() <= time) board::end("reset watchdog", board::kReset);
    if (reset_time <= time) board::end(reset_reason, board::kReset);
    if (end_time <= time) board::end("end time", board::kEndOfTime);
    reschedule();
}

void end_at(const char* seconds) {
    Words words(seconds);
    end_time = words.seconds();
    reschedule();
}

void reset_board(const char* reason, Nanos delay) {
    if (reset_time != kNever) return;
    reset_reason = reason;
    reset_time = clock::now() + delay;
    reschedule();
}

int64_t fault_of(const char* what, const char* op, uint32_t request) {
    int64_t effect = kNoFault;
    if (faults.begin() == faults.end()) return effect;
    const clock::Guard guard(lock);
    for (Fault& each : faults) {
        const bool same_what = strcmp(each.what, "*") == 0 || strcmp(each.what, what) == 0;
        if (!same_what || each.op != op || (each.request != 0 && each.request != request)) continue;
        ++each.calls;
        if (each.calls >= each.from && each.calls <= each.to && effect == kNoFault) effect = each.effect;
    }
    return effect;
}

const Answer* scripted_answer(std::string_view command) {
    for (const Command& each : commands) {
        if (each.name == command) return &each.answer;
    }
    return nullptr;
}

}  // namespace sim::script
