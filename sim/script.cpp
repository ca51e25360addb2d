#include "script.h"

#include <sys/sendfile.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <mutex>

#include "beat.h"
#include "board.h"
#include "devices.h"
#include "journal.h"
#include "launch/run.h"
#include "real.h"
#include "uevent.h"
#include "words.h"

namespace sim::script {
namespace {

using clock::kNever;
using clock::Nanos;
using devices::State;

constexpr size_t kLineSize = 1024;
constexpr size_t kTextSize = 256U << 10;
constexpr off_t kEnvironmentSize = 0x20000;
constexpr uint32_t kEraseSize = 0x10000;
constexpr const char* kEnvironment = "/dev/mtd/1";
constexpr const char* kUsbHost = "/sys/devices/platform/musb_hdrc/usb1";

// A line to be run, or the beat of a process: a file whose first word it counts up.
struct Event {
    Nanos at;  // kNever once it is over
    const char* text;
    Nanos every;  // 0: a line
    Nanos until;
    uint32_t count;
    unsigned line;  // of the script
};

struct Fault {
    const char* text;
    const char* what;
    const char* op;
    uint32_t request;  // 0: any
    int64_t effect;
    unsigned from;
    unsigned to;
    unsigned calls;
    bool fired;
};

bool starting = false;    // the script's first pass over a board
bool rehearsing = false;  // lines are only looked at
State rehearsed;

State& state() { return rehearsing ? rehearsed : devices::state; }

// Room kept from the start: events run in the middle of the program's calls, where nothing may be allocated.
template <class T, size_t kMost>
struct Table {
    bool add(const T& item) { return rehearsing || (used < kMost && (items[used++] = item, true)); }
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
const char* script_name = "";
unsigned current_line = 0;
Nanos end_time = kNever;
Nanos reset_time = kNever;
Nanos watchdog_time = kNever;
const char* reset_reason = "";
clock::Lock lock;

char* keep(const char* text) {
    const size_t size = strlen(text) + 1;
    char* copy = static_cast<char*>(memcpy(kept_text + kept, text, size));
    kept += size;
    return copy;
}

// --- Files

bool starts(const char* text, const char* prefix) { return strncmp(text, prefix, strlen(prefix)) == 0; }

char* path_of(Words& words) {
    char there[board::kPathSize];
    char* path = words.next();
    words.wants(board::place(path, there) != nullptr, "a path below /dev, /proc, /sys, /mnt, /tmp or /etc",
                path);
    return path;
}

char* device_of(Words& words) {
    char* path = words.next();
    words.wants(devices::is_known(path), devices::known(), path);
    return path;
}

// What survives a restart of the board is not made a second time.
bool survives(const char* path) {
    if (rehearsing) return true;
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
    const char* path = path_of(words);
    char* text = words.rest();
    size_t size = unescape(text);
    if (size > 0 && newline) text[size++] = '\n';  // over the end, which is no longer needed
    return put(path, flags, text, size);
}

bool do_uevent(Words& words, size_t size) {
    char* text = words.rest();
    return rehearsing || uevent::send(text, unescape(text), size);
}

bool do_word(Words& words) {
    const char* path = path_of(words);
    const uint32_t value = words.number();
    return put(path, 0, &value, sizeof value);
}

bool do_truncate(Words& words) {
    const char* path = path_of(words);
    return resize(path, words.number());
}

// The first four bytes are a checksum that readers do not look at.
bool do_env(Words& words) {
    const char* text = words.rest();
    const size_t size = strlen(text) + 1;
    const auto offset = static_cast<off_t>(4 + state().environment_used);
    state().environment_used += static_cast<uint32_t>(size);
    words.wants(strchr(text, '=') != nullptr, "NAME=VALUE", text);
    return put(kEnvironment, 0, text, size, offset) &&
           put(kEnvironment, 0, "", 1, offset + static_cast<off_t>(size)) &&
           put(kEnvironment, 0, "", 1, kEnvironmentSize - 1);
}

bool do_short_env(Words& words) {
    return put(kEnvironment, 0, "", 0) && resize(kEnvironment, words.number());
}

// --- What stands for several lines

bool run(char* line);

__attribute__((format(printf, 1, 2))) void run_lines(const char* format, ...) {
    char text[4 * kLineSize];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    char* rest = nullptr;
    for (char* line = strtok_r(text, "\n", &rest); line != nullptr; line = strtok_r(nullptr, "\n", &rest))
        Words::wants(run(line), "possible", line);
}

// A partition: erased, with what a file of the host has for its beginning.
bool do_mtd(Words& words) {
    const uint32_t number = words.number();
    const char* name = words.word();
    const uint32_t size = words.number();
    const uint32_t erase_size = words.is("erase") ? words.number() : kEraseSize;
    const char* file = words.rest();
    const int image = real.open(file, O_RDONLY | O_CLOEXEC);
    words.wants(image >= 0 || *file == '\0', "a file", file);
    words.wants(number != 1 || state().environment_used == 0, "before the first env", name);
    if (state().partitions++ == 0) run_lines("file /proc/mtd dev:    size   erasesize  name\n");
    run_lines("file /proc/mtd mtd%u: %08x %08x \"%s\"\n", number, size, erase_size, name);
    char path[32];
    snprintf(path, sizeof path, "/dev/mtd/%u", number);
    const bool made = at_place(path, [image, size](const char* there) {
        const int fd = real.open(there, O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        const bool erased = devices::erase(fd, 0, size) == 0;
        const bool filled = image < 0 || sendfile(fd, image, nullptr, size) >= 0;
        return real.close(fd) == 0 && erased && filled;
    });
    real.close(image);
    return made;
}

constexpr char kUsbListed[] =
    "file /proc/bus/usb/devices T:  Bus=01 Lev=%02d Prnt=%02d Port=%02d Cnt=01 Dev#=  2 Spd=480 MxCh= 0\\n"
    "D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\\nP:  Vendor=%s ProdID=%s Rev= 1.00\\n"
    "S:  Manufacturer=%s\\nS:  Product=%s\\nC:* #Ifs= 1 Cfg#= 1 Atr=e0 MxPwr=500mA\\n"
    "I:* If#= 0 Alt= 0 #EPs= 3 Cls=ff(vend.) Sub=ff Prot=ff Driver=%s\n";

bool do_no_usb(Words&) {
    state().usb_listed = true;
    state().serial_ports = 0;
    run_lines("file! /proc/bus/usb/devices\n");
    run_lines(kUsbListed, 0, 0, 0, "0000", "0000", "Linux 2.6.10 musb-hcd", "root hub", "hub");
    return at_place(kUsbHost, [](const char* there) { return board::remove_tree(there, false), true; });
}

// In the kernel's list, with its attributes and serial ports, and announced.
bool do_usb(Words& words) {
    const char *vendor = words.word(), *product = words.word(), *place = words.word();
    const char* driver = words.is("driver") ? words.word() : "usbserial_generic";
    const uint32_t ports = words.is("tty") ? words.number() : 0;
    char* maker = words.rest();
    char* name = strchrnul(maker, '/');
    const size_t size = strlen(place);
    const bool is_place = starts(place, "1-") && strspn(place + 2, "123456789.") == size - 2 && size < 10;
    if (!words.wants(is_place && isdigit(place[size - 1]), "a place as 1-1 or 1-1.2", place)) return false;
    if (!words.wants(*name == '/', "MAKER/NAME", maker)) return false;
    *name++ = '\0';
    char directory[128];
    int length = snprintf(directory, sizeof directory, "%s", kUsbHost), level = 0;
    for (const char* end = place; *end != '\0'; ++level) {  // every hub on the way has one
        end = strchrnul(end + 1, '.');
        length += snprintf(directory + length, 32, "/%.*s", static_cast<int>(end - place), place);
    }
    if (!state().usb_listed) do_no_usb(words);
    const int port = directory[length - 1] - '1';
    run_lines(kUsbListed, level, level - 1, port, vendor, product, maker, name, driver);
    const char* const attributes[][2] = {{"manufacturer", maker}, {"product", name},      {"version", "2.00"},
                                         {"idVendor", vendor},    {"idProduct", product}, {"speed", "480"}};
    for (const auto& [attribute, value] : attributes)
        run_lines("file! %s/%s %s\\n\n", directory, attribute, value);
    for (uint32_t i = 0; i < ports; ++i)
        run_lines("file! %s/%s:1.0/ttyUSB%u/dev 188\n", directory, place, state().serial_ports++);
    run_lines("uevent add@%s\\x00ACTION=add\n", directory + strlen("/sys"));
    return true;
}

// --- Devices

// A first place and the values from there on.
template <size_t kSize>
bool put_bytes(Words& words, uint8_t (&bytes)[kSize], uint32_t last, const char* places, int base,
               uint32_t most) {
    size_t at = words.number(0, last, places);
    do {
        const uint32_t value = words.number(base, most, base == 16 ? "a byte in hexadecimal" : "0 or 1");
        if (at < kSize) bytes[at++] = static_cast<uint8_t>(value);
    } while (words.more());
    return true;
}

bool do_level(Words& words) { return put_bytes(words, state().levels, 71, "a GPIO line, 0 to 71", 10, 1); }

bool do_cmos(Words& words) {
    const bool known = survives(devices::kCmosFile);
    return put_bytes(words, known ? rehearsed.cmos : state().cmos, 255, "an offset, 0 to 255", 16,
                     UINT8_MAX) &&
           (known || devices::save_cmos());
}

bool do_version(Words& words) {
    constexpr std::pair<size_t, size_t> kParts[] = {{0, 32}, {48, 16}, {32, 16}};
    memset(state().version, 0, sizeof state().version);
    for (const auto& [at, size] : kParts) snprintf(state().version + at, size, "%s", words.word());
    return true;
}

bool do_acks(Words& words) {
    state().acks_taken = 0;
    for (state().acks_used = 0; words.more(); ++state().acks_used) {
        if (state().acks_used == std::size(state().acks)) return false;
        state().acks[state().acks_used] = words.number(16);
    }
    return true;
}

bool do_present(Words& words) {
    const char* path = device_of(words);
    return rehearsing || board::write_file(path, O_CREAT, "", 0);
}

// --- Commands, faults, time

bool do_command(Words& words) {
    const char* name = keep(words.word());
    const int status = static_cast<int>(words.number()) << 8;
    return answers.add({name, status, words.more() ? words.seconds() : 0});
}

// A negated error number, by name or number.
int64_t error_of(Words& words) {
    const char* word = words.next();
    const char* name = isdigit(*word) != 0 ? strerrorname_np(atoi(word)) : word;
    for (int number = 1; name != nullptr && number < 140; ++number) {
        const char* known = strerrorname_np(number);
        if (known != nullptr && strcmp(name, known) == 0) return -number;
    }
    words.wants(false, "an error as EIO, its number, or short and a number", word);
    return kNoFault;
}

// What can fail: whose calls, and which.
constexpr char kCalls[] =
    "; PATH open close read write ioctl lseek mmap ftruncate stat lstat access mkdir unlink rename opendir "
    "; socket open close read write ioctl setsockopt sendto bind ; out write ; err write "
    "; thread pthread_create ; clone clone ; clock settimeofday ; COMMAND system ; * sleep and all of these "
    ";";

bool can_fail(const char* what, const char* op) {
    char owner[104], call[104];
    snprintf(owner, sizeof owner, "; %.99s ", what[0] == '/' ? "PATH" : what);
    snprintf(call, sizeof call, " %.99s ", op);
    const char* calls = strstr(kCalls, owner);
    if (calls == nullptr) calls = strstr(kCalls, "; COMMAND ");
    const char* found = strstr(what[0] == '*' ? kCalls : calls, call);
    return found != nullptr && (what[0] == '*' || found < strchr(calls + 1, ';'));
}

// WHAT CALL[:REQUEST] N|N..M|N+ ERROR|short BYTES
bool do_fault(Words& words) {
    Fault fault{};
    fault.text = keep(words.rest());
    Words parts(keep(fault.text));
    fault.what = starts(fault.text, "/dev/") ? device_of(parts)
                 : fault.text[0] == '/'      ? path_of(parts)
                                             : parts.next();
    char* op = parts.next();
    fault.op = op;
    if (char* colon = strchr(op, ':')) {
        *colon = '\0';
        Words request(colon + 1);
        fault.request = request.number();
    }
    parts.wants(can_fail(fault.what, op), kCalls + 2, op);
    const char* range = parts.next();
    const int numbers = sscanf(range, "%u..%u", &fault.from, &fault.to);
    if (numbers == 1) fault.to = strchr(range, '+') != nullptr ? UINT_MAX : fault.from;
    const bool is_plain = strspn(range, "0123456789.+") == strlen(range);
    parts.wants(is_plain && numbers > 0 && fault.from > 0 && fault.from <= fault.to, "N, N..M or N+", range);
    fault.effect = parts.is("short") ? static_cast<int64_t>(parts.number()) : error_of(parts);
    return parts.ends() && faults.add(fault);
}

bool do_beat(Words& words) {
    Event beat{clock::now(), keep(path_of(words)), clock::kSecond, kNever, 0, 0};
    if (words.is("every")) beat.every = words.seconds();
    if (words.is("until")) beat.until = words.seconds();
    return beat.every > 0 && events.add(beat);
}

bool run_copy(const char* text) {
    char line[kLineSize];
    snprintf(line, sizeof line, "%.*s", static_cast<int>(sizeof line - 1), text);
    return run(line);
}

bool do_at(Words& words) {
    const Nanos at = words.seconds();
    char* text = keep(words.rest());
    const bool acts =
        !starts(text, "expect") && !starts(text, "never") && !starts(text, "describe") && *text != '\0';
    return words.wants(acts, "a line that does something", text) && (!rehearsing || run_copy(text)) &&
           events.add({at, text, 0, 0, 0, current_line});
}

bool do_boot(Words& words) {
    const uint32_t number = words.number();
    return (!rehearsing && number != board::boot_number() && words.rest() != nullptr) ||
           run_copy(words.rest());
}

// TIME TEXT, or TEXT within A..B
bool do_expect(Words& words) {
    char* text = words.rest();
    char* within = nullptr;
    for (char* next = text; (next = strstr(next, " within ")) != nullptr; ++next) within = next;
    char* upper = within != nullptr ? strstr(within, "..") : nullptr;
    if (upper != nullptr) upper[0] = upper[1] = ' ';
    Words times(upper != nullptr ? within + strlen(" within ") : text);
    times.seconds();
    if (upper == nullptr) return times.wants(times.more(), "TEXT", "");
    times.seconds();
    return times.ends();
}

bool do_expect_end(Words& words) {
    if (words.is("exit")) return words.number() <= UINT8_MAX;
    return words.is("reset") || words.is("running") ||
           words.wants(false, "reset, running or exit N", words.rest());
}

// The machine's own interfaces are none of the board's.
bool do_network(Words& words) {
    state().network = launch::has_own_network();
    return words.wants(state().network, "left out: there is no network namespace of its own", "network real");
}

// How a line begins and goes on, and what it does or, where that is all, which number it sets.
struct Verb {
    const char* name;
    const char* more;
    bool (*run)(Words& words);
    uint32_t State::*number = nullptr;
};

bool take_text(Words& words) { return words.wants(*words.rest() != '\0', "a text", ""); }

constexpr Verb kVerbs[] = {
    {"describe", "TEXT", take_text},
    {"expect end", "reset|running|exit N", do_expect_end},
    {"expect", "TIME TEXT|TEXT within A..B", do_expect},
    {"never", "TEXT", take_text},
    {"env", "NAME=VALUE", do_env},
    {"envimage missing", "", [](Words&) { return remove_file(kEnvironment); }},
    {"envimage short:", "BYTES", do_short_env},
    {"mtd", "N NAME SIZE [erase SIZE] [FILE]", do_mtd},
    {"file", "PATH [TEXT]", [](Words& words) { return put_text(words, O_APPEND, true); }},
    {"file!", "PATH [TEXT]", [](Words& words) { return put_text(words, O_TRUNC, false); }},
    {"uevent padded:", "SIZE [TEXT]", [](Words& words) { return do_uevent(words, words.number()); }},
    {"uevent", "[TEXT]", [](Words& words) { return do_uevent(words, 0); }},
    {"usb none", "", do_no_usb},
    {"usb", "VENDOR PRODUCT PLACE [driver NAME] [tty N] MAKER/NAME", do_usb},
    {"word", "PATH N", do_word},
    {"truncate", "PATH SIZE", do_truncate},
    {"delete", "PATH", [](Words& words) { return remove_file(path_of(words)); }},
    {"missing", "DEVICE", [](Words& words) { return remove_file(device_of(words)); }},
    {"present", "DEVICE", do_present},
    {"level", "LINE 0|1...", do_level},
    {"cmos", "OFFSET BYTE...", do_cmos},
    {"spi0 version", "NAME V1 V2", do_version},
    {"spi0 acks", "[HEX...]", do_acks},
    {"spi0 mute", "", [](Words&) { return !(state().acknowledges = false); }},
    {"mcu say", "BYTE...", devices::mcu::say},
    {"mcu answer", "COMMAND OPERATION [BYTE...]", devices::mcu::answer},
    {"wdt fed", "SECONDS", [](Words& words) { return (state().fed_until = words.seconds()) >= 0; }},
    {"fpga id", "N", nullptr, &State::fpga_id},
    {"command", "NAME STATUS [SECONDS]", do_command},
    {"fault", "WHAT CALL[:REQUEST] N|N..M|N+ ERROR|short BYTES", do_fault},
    {"beat", "PATH [every SECONDS] [until SECONDS]", do_beat},
    {"at", "SECONDS LINE", do_at},
    {"boot", "N LINE", do_boot},
    {"rtc stopped", "", [](Words&) { return state().rtc_stopped = true; }},
    {"network real", "", do_network},
    {"expander", "BYTE", nullptr, &State::expander},
    {"spi0 alive", "N", nullptr, &State::alive},
    {"spi0 status", "N", nullptr, &State::link_status},
    {"spi0 2a", "N", nullptr, &State::query_2a},
    {"vpfe stalled", "N", nullptr, &State::stalled},
    {"cut now", "", [](Words&) { return rehearsing || (board::end("cut", board::kCut), true); }},
    {"cut", "N", nullptr, &State::changes_to_cut},
};

bool run(char* line) {
    if (line[strspn(line, " \t")] == '\0' || line[0] == '#') return true;
    Words words(line);
    for (const Verb& each : kVerbs) {
        if (!words.is(each.name)) continue;
        if (each.number != nullptr) state().*each.number = words.number();
        return (each.run == nullptr || each.run(words)) && words.ends();
    }
    return words.wants(false, known_lines(), line);
}

// Does all of a line but its effects.
bool rehearse(const char* text) {
    const size_t kept_before = kept;
    rehearsed = devices::state;
    rehearsing = true;
    Words::problem[0] = '\0';
    const bool has_room = strlen(text) < kLineSize && kept + 3 * kLineSize < kTextSize;
    const bool good = Words::wants(has_room, "shorter", text) && run_copy(text);
    rehearsing = false;
    kept = kept_before;
    return good;
}

void complain(const char* line) {
    Words::wants(false, "possible", line);
    record::Line("board").add(" %s:%u: %s", script_name, current_line, Words::problem);
    dprintf(2, "simulated board: %s:%u: %s\n", script_name, current_line, Words::problem);
}

void must_run(const char* text) {
    Words::problem[0] = '\0';
    if (run_copy(text)) return;
    complain(text);
    board::end("cannot do its script", board::kBadScript);
}

template <class Body>
void each_line(const char* text, Body body) {
    for (current_line = 1; *text != '\0'; ++current_line) {
        char line[kLineSize + 1];
        const size_t length = strcspn(text, "\n");
        snprintf(line, sizeof line, "%.*s", static_cast<int>(length), text);
        body(line);
        text += length + (text[length] != '\0');
    }
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
            current_line = event.line;
            if (event.every > 0) {
                beat::write(event.text, event.count);
                continue;
            }
            if (record::is_open()) record::Line("script").add(" %s", event.text);
            must_run(event.text);
        }
    }
}

}  // namespace

void reset() {
    beat::forget();
    events.used = faults.used = answers.used = kept = 0;
    end_time = reset_time = watchdog_time = kNever;
    starting = true;
}

const char* known_lines() {
    static char list[4096];
    char* end = list;
    for (const Verb& each : kVerbs)
        end += sprintf(end, "%s%s %s", end > list ? "; " : "one of: ", each.name, each.more);
    return list;
}

bool rehearses() { return rehearsing; }

bool tell(const char* text) {
    const std::lock_guard guard(lock);
    if (!rehearse(text)) return false;
    record::Line("board").add(" told: %s", text);
    return Words::wants(run_copy(text), "possible", text);
}

void apply(const char* text, const char* name) {
    bool good = true;
    script_name = name;
    each_line(text, [&good](const char* line) {
        if (rehearse(line)) return;
        good = false;
        complain(line);
    });
    if (!good) board::end("cannot do its script", board::kBadScript);
    each_line(text, must_run);
    starting = false;
    run_due();
}

void report_faults() {
    for (const Fault& each : faults) {
        if (!each.fired) record::Line("board").add(" fault %s never fired", each.text);
    }
    faults.used = 0;
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
        if (each.calls < each.from || each.calls > each.to || effect != kNoFault) continue;
        effect = each.effect;
        each.fired = true;
        record::Line("board").add(" fault %s: call %u", each.text, each.calls);
    }
    return effect;
}

void count_change() {
    uint32_t& changes = devices::state.changes_to_cut;
    if (changes > 0 && --changes == 0) board::end("cut", board::kCut);
}

const Answer* scripted_answer(const char* command) {
    const Answer* last = nullptr;  // a later line overrides
    for (const Answer& each : answers) {
        if (strcmp(each.command, command) == 0) last = &each;
    }
    return last;
}

}  // namespace sim::script
