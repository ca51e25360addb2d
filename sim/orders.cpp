// What the script orders: files, the state of devices, what comes later.
#include <sys/sendfile.h>

#include <mutex>
#include <utility>

#include "board.h"
#include "devices.h"
#include "journal.h"
#include "launch/run.h"
#include "real.h"
#include "script.h"
#include "words.h"

namespace sim::script {
namespace {

using clock::Nanos;
using devices::state;

constexpr size_t kTextSize = 256U << 10;
constexpr const char* kEnvironment = "/dev/mtd/1";
constexpr off_t kEnvironmentSize = 0x20000;
constexpr std::string_view kNul("\0", 1);

char kept_text[kTextSize];
size_t kept = 0;
int control = -1;
pid_t control_owner = 0;

bool starts(const char* text, const char* prefix) { return strncmp(text, prefix, strlen(prefix)) == 0; }

// --- Files

// Does something with a file of the board by its place on the host.
template <class Body>
bool at_place(const char* path, Body body) {
    char there[board::kPathSize];
    return board::place_inside(path, there) && body(there);
}

// PATH new|all|end|OFFSET TEXT: of a file that is not there yet, of the whole, behind its end, from there on.
bool do_put(Words& words) {
    const char* path = words.next();
    const char* how = words.next();
    const std::string_view text = words.bytes();
    const bool is_new = starts(how, "new");
    const int flags = is_new ? O_EXCL : starts(how, "all") ? O_TRUNC : starts(how, "end") ? O_APPEND : 0;
    return board::write_file(path, flags, text, atoi(how)) || (is_new && errno == EEXIST);
}

bool do_directory(Words& words) {
    return at_place(words.next(), [](char* there) { return board::make_parents(there), true; });
}

bool do_size(Words& words) {
    const char* path = words.next();
    const auto size = static_cast<off_t>(words.number());
    return at_place(path, [size](const char* there) { return real.truncate(there, size) == 0; });
}

bool do_remove(Words& words) {
    return at_place(words.next(), [](const char* there) { return board::remove_tree(there, false), true; });
}

bool do_env(Words& words) {
    const std::string_view text = words.rest();
    const off_t begin = state.environment_end;
    state.environment_end += static_cast<off_t>(text.size() + 1);
    return board::write_file(kEnvironment, 0, {text.data(), text.size() + 1}, begin) &&
           board::write_file(kEnvironment, 0, kNul, state.environment_end) &&
           board::write_file(kEnvironment, 0, kNul, kEnvironmentSize - 1);
}

// PATH SIZE [FILE]: erased, with what a file of the host has for its beginning.
bool do_flash(Words& words) {
    const int fd = board::open_file(words.next(), O_RDWR | O_CREAT);
    const auto size = static_cast<uint32_t>(words.number());
    const int image = real.open(words.rest(), O_RDONLY | O_CLOEXEC);
    const bool erased = devices::erase(fd, 0, size) == 0;
    const bool filled = image < 0 || sendfile(fd, image, nullptr, size) >= 0;
    real.close(image);
    return real.close(fd) == 0 && erased && filled;
}

// --- The state of devices

struct Register {
    const char* name;
    void* first;
    size_t width;
};

const Register kRegisters[] = {
    {"level", state.levels, 1},
    {"version", state.version, 1},
    {"expander", &state.expander, sizeof state.expander},
    {"alive", &state.alive, sizeof state.alive},
    {"status", &state.link_status, sizeof state.link_status},
    {"2a", &state.query_2a, sizeof state.query_2a},
    {"stalled", &state.stalled, sizeof state.stalled},
    {"fpga", &state.fpga_id, sizeof state.fpga_id},
    {"fed", &state.fed_until, sizeof state.fed_until},
    {"rtc", &state.rtc_start, sizeof state.rtc_start},
    {"rtc-stopped", &state.rtc_stopped, sizeof state.rtc_stopped},
    {"acknowledges", &state.acknowledges, sizeof state.acknowledges},
    {"acks", state.acks, sizeof state.acks[0]},
    {"changes-to-cut", &state.changes_to_cut, sizeof state.changes_to_cut},
    {"environment", &state.environment_end, sizeof state.environment_end},
};

// REGISTER PLACE NUMBER...
bool do_set(Words& words) {
    const Register& known = *find_row(kRegisters, words.next());
    char* to = static_cast<char*>(known.first) + known.width * static_cast<size_t>(words.number());
    for (; words.more(); to += known.width) {
        const int64_t value = words.number();
        memcpy(to, &value, known.width);
    }
    return true;
}

bool do_network(Words&) {
    state.network = launch::has_own_network();
    if (!state.network) board::end("there is no network namespace of its own", board::kBadScript);
    return true;
}

// --- The rest

bool do_log(Words& words) {
    const char* who = words.next();
    if (record::is_open() || !starts(who, "script")) record::Line(who).add(" %s", words.rest());
    return true;
}

// STATUS REASON
bool do_end(Words& words) {
    const auto status = static_cast<board::ExitCode>(words.number());
    board::end(words.rest(), status);
}

struct Order {
    const char* name;
    bool (*run)(Words& words);
};

constexpr Order kOrders[] = {
    {"put", do_put},
    {"directory", do_directory},
    {"size", do_size},
    {"remove", do_remove},
    {"env", do_env},
    {"flash", do_flash},
    {"uevent", devices::send_event},
    {"set", do_set},
    {"say", devices::mcu::say},
    {"answer", devices::mcu::answer},
    {"network", do_network},
    {"command", add_answer},
    {"fault", add_fault},
    {"storm", begin_storm},
    {"unfault", [](Words&) { return forget_faults(), true; }},
    {"beat", add_beat},
    {"log", do_log},
    {"end", do_end},
};

[[noreturn]] void fail(const char* why, unsigned line) {
    char reason[128];
    snprintf(reason, sizeof reason, "cannot do its script: line %u: %s", line, why);
    board::end(reason, board::kBadScript);
}

}  // namespace

char* keep(const char* text) {
    const size_t size = strlen(text) + 1;
    if (kept + size > sizeof kept_text) fail("too much for it to keep", 0);
    char* copy = static_cast<char*>(memcpy(kept_text + kept, text, size));
    kept += size;
    return copy;
}

void run_order(unsigned line, char* text) {
    Words words(text);
    const char* name = words.next();
    const Order* order = find_row(kOrders, name);
    if (order == nullptr || !order->run(words)) fail(name, line);
}

void apply(char* orders) {
    char* rest = nullptr;
    for (char* text = strtok_r(orders, "\n", &rest); text != nullptr; text = strtok_r(nullptr, "\n", &rest)) {
        Words words(text);
        const auto line = static_cast<unsigned>(words.number());
        const char* time = words.next();
        if (*time == '-') {
            run_order(line, words.rest());
        } else {
            add_order(atoll(time), line, words.rest());
        }
    }
}

void open_control(const char* path) {
    if (path != nullptr) control = real.open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    control = put_away(control);
    control_owner = getpid();
}

// An order is done when its line is whole. A child has none of them.
void take_control() {
    static char text[8192];
    static size_t used = 0;
    if (control < 0 || getpid() != control_owner) return;
    const std::lock_guard guard(event_lock);
    while (real.read(control, text + used, 1) == 1) {
        if (text[used] != '\n' && ++used < sizeof text) continue;
        text[std::exchange(used, 0)] = '\0';
        apply(text);
    }
}

void reset() {
    forget_events();
    forget_faults();
    forget_answers();
    kept = 0;
}

}  // namespace sim::script
