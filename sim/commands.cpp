#include <cstdio>
#include <cstring>

#include "board.h"
#include "clock.h"
#include "journal.h"
#include "real.h"
#include "script.h"
#include "words.h"

// The shell commands of the board. No shell ever sees them.
namespace sim::script {
namespace {

constexpr int kRefused = 1 << 8;
constexpr int kTerminated = 15;

// True when the command took its time undisturbed.
bool take_time(std::string_view name, clock::Nanos duration) {
    clock::Participant* me = clock::self();
    if (me == nullptr) return clock::sleep(duration);
    me->killed = false;
    snprintf(me->command, sizeof me->command, "%.*s", static_cast<int>(name.size()), name.data());
    const bool undisturbed = clock::sleep(duration);
    me->command[0] = '\0';
    me->killed = false;
    return undisturbed;
}

int do_rm(Words& words) {
    int status = 0;
    char path[board::kPathSize];
    for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
        if (word.front() == '-') continue;
        const bool contents = word.ends_with("/*");
        if (contents) word.remove_suffix(2);
        if (word.find('*') != word.npos || !board::place_inside(Text(word), path)) {
            status = kRefused;
        } else if (real.access(path, F_OK) == 0 && !board::remove_tree(path, contents)) {
            status = kRefused;
        }
    }
    return status;
}

int do_mkdir(Words& words) {
    int status = 0;
    char path[board::kPathSize];
    for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
        if (word.front() == '-') continue;
        if (!board::place_inside(Text(word), path) || real.mkdir(path, 0755) != 0) status = kRefused;
    }
    return status;
}

int do_reboot(Words&) {
    reset_board("reset command", clock::kSecond);
    return 0;
}

int do_killall(Words& words) {
    for (std::string_view word = words.next(); !word.empty(); word = words.next()) {
        if (word.front() != '-') clock::kill_commands(Text(word));
    }
    return 0;
}

int do_sleep(Words& words) { return take_time("sleep", words.seconds()) ? 0 : kTerminated; }

struct BuiltIn {
    std::string_view name;
    int (*run)(Words& words);
};

constexpr BuiltIn kBuiltIns[] = {
    {"rm", do_rm}, {"mkdir", do_mkdir}, {"reboot", do_reboot}, {"killall", do_killall}, {"sleep", do_sleep},
};

int perform(std::string_view name, Words& words) {
    if (const Answer* answer = scripted_answer(name)) {
        return answer->duration == 0 || take_time(name, answer->duration) ? answer->status : kTerminated;
    }
    for (const BuiltIn& each : kBuiltIns) {
        if (each.name == name) return each.run(words);
    }
    return 0;
}

}  // namespace

int run_command(const char* text) {
    Words words(text);
    std::string_view name = words.next();
    if (const size_t slash = name.rfind('/'); slash != name.npos) name.remove_prefix(slash + 1);
    const Answer* answer = scripted_answer(name);
    if (name == "sleep" || (answer != nullptr && answer->duration > 0)) {
        record::Line("command").quoted(text, strlen(text)).add(" begins");
    }
    const int64_t fault = fault_of(Text(name), "system");
    const int status = fault < 0 ? -1 : perform(name, words);
    record::Line line("command");
    line.quoted(text, strlen(text));
    if (fault < 0) {
        line.failure(fault);
        errno = static_cast<int>(-fault);
    } else {
        line.add(" -> %d", status);
    }
    return status;
}

}  // namespace sim::script
