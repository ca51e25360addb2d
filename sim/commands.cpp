// The shell commands of the board. No shell ever sees them.
#include <net/if.h>

#include "board.h"
#include "clock.h"
#include "devices.h"
#include "journal.h"
#include "real.h"
#include "script.h"
#include "words.h"

namespace sim::script {
namespace {

constexpr int kRefused = 1 << 8;
constexpr int kTerminated = 15;
constexpr size_t kCommandSize = 1024;

struct Answer {
    const char* name;
    int status;
    clock::Nanos duration;
};

Table<Answer, 64> answers;

// The status of a command that takes its time, unless a killall disturbs it.
int take_time(const char* name, clock::Nanos duration, int status) {
    clock::Participant* me = clock::self();
    if (me == nullptr || duration == 0) return status;
    snprintf(me->command, sizeof me->command, "%s", name);
    const bool undisturbed = clock::sleep(duration);
    me->command[0] = '\0';
    me->killed = false;
    return undisturbed ? status : kTerminated;
}

// Does something with every path that is named; what begins with '-' is an option.
template <class Body>
int each_path(Words& words, Body body) {
    int status = 0;
    while (words.more()) {
        const char* word = words.next();
        char path[board::kPathSize];
        if (word[0] != '-' && (!board::place_inside(word, path) || !body(path))) status = kRefused;
    }
    return status;
}

int do_rm(Words& words) {
    return each_path(words, [](char* path) {
        char* last = path + strlen(path) - 2;
        const bool contents = strcmp(last, "/*") == 0;
        if (contents) *last = '\0';
        if (strchr(path, '*') != nullptr) return false;
        return real.access(path, F_OK) != 0 || board::remove_tree(path, contents);
    });
}

int do_mkdir(Words& words) {
    return each_path(words, [](const char* path) { return real.mkdir(path, 0755) == 0; });
}

int do_killall(Words& words) {
    while (words.more()) clock::kill_commands(words.next());
    return 0;
}

int do_ifconfig(Words& words) {
    if (!devices::state.network) return 0;
    ifreq request{};
    snprintf(request.ifr_name, sizeof request.ifr_name, "%s", words.next());
    const char* wanted = words.next();
    const bool up = strcmp(wanted, "up") == 0;
    const int fd =
        up || strcmp(wanted, "down") == 0 ? real.socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1;
    int result = real.ioctl(fd, SIOCGIFFLAGS, &request);
    const int flags = up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP;
    request.ifr_flags = static_cast<short>(flags);
    if (result == 0) result = real.ioctl(fd, SIOCSIFFLAGS, &request);
    real.close(fd);
    return result == 0 ? 0 : kRefused;
}

struct BuiltIn {
    const char* name;
    int (*run)(Words& words);
};

constexpr BuiltIn kBuiltIns[] = {
    {"rm", do_rm},
    {"mkdir", do_mkdir},
    {"killall", do_killall},
    {"ifconfig", do_ifconfig},
    {"reboot", [](Words&) { return add_order(clock::now() + clock::kSecond, 0, "end 3 reset command"), 0; }},
};

int perform(const char* name, Words& words) {
    count_change();
    for (size_t i = answers.used; i-- > 0;) {  // a later line overrides
        const Answer& each = answers.items[i];
        if (strcmp(each.name, name) == 0) return take_time(name, each.duration, each.status << 8);
    }
    const BuiltIn* known = find_row(kBuiltIns, name);
    return known != nullptr ? known->run(words) : 0;
}

}  // namespace

bool add_answer(Words& words) {
    return answers.add({keep(words.next()), static_cast<int>(words.number()), words.number()});
}

void forget_answers() { answers.used = 0; }

int64_t run_command(const char* text) {
    char copy[kCommandSize];
    snprintf(copy, sizeof copy, "%s", text);
    Words words(copy);
    const char* name = basename(words.next());
    const int64_t fault = fault_of(name, "system");
    const int64_t status = fault < 0 ? fault : perform(name, words);
    record::Line line("command");
    line.quoted(text, strlen(text)).failure(status);
    if (status >= 0) line.add(" -> %d", static_cast<int>(status));
    return status;
}

}  // namespace sim::script
