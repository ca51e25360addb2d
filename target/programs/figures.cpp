// What the daemon costs on a kernel of its own, beside busybox's watchdog on the same machine at the same time: figures
// SECONDS SENTREL WATCHDOG-LOG SOFTWARE-WATCHDOG. Nothing stands between either of them and the kernel. The devices of the board must be there, and
// WATCHDOG-LOG is what they write of the watchdog.
#include <fcntl.h>
#include <linux/watchdog.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "libmarl/watchdog.h"

namespace {

constexpr int kStarts = 5;
constexpr int kStartLimitMs = 10'000;
constexpr int kSettledAfterS = 7;  // the first look at the heartbeats is over

using Command = std::vector<std::string>;

int64_t nanoseconds(clockid_t clock) {
    timespec now{};
    if (clock_gettime(clock, &now) != 0) return -1;
    return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

void sleep_ms(long ms) {
    const timespec span{ms / 1000, ms % 1000 * 1'000'000};
    nanosleep(&span, nullptr);
}

struct Started {
    pid_t process;
    int64_t moment;
};

// As a child of the first process, which is what a daemon is started by; this one is in between for a moment.
Started start(const Command& command) {
    int ends[2];
    if (pipe(ends) != 0) abort();
    const pid_t between = fork();
    if (between == 0) {
        const pid_t daemon = fork();
        if (daemon != 0) _exit(0);
        std::vector<char*> words;
        for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
        words.push_back(nullptr);
        const int out = open("/tmp/daemon.out", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(out, 1);
        dup2(out, 2);
        const Started self{getpid(), nanoseconds(CLOCK_MONOTONIC)};
        if (write(ends[1], &self, sizeof self) != sizeof self) _exit(127);
        close(ends[0]);
        close(ends[1]);
        execv(words[0], words.data());
        _exit(127);
    }
    Started started{};
    if (read(ends[0], &started, sizeof started) != sizeof started) abort();
    close(ends[0]);
    close(ends[1]);
    waitpid(between, nullptr, 0);
    return started;
}

// When the watchdog was asked to run, after that moment; -1 when it was not.
int64_t armed_after(int64_t moment, const char* log) {
    for (int waited = 0; waited < kStartLimitMs; waited += 5) {
        std::ifstream lines(log);
        unsigned request = 0;
        for (int64_t when = 0; lines >> request >> when;) {
            if (when > moment && (request == MARL_WDT_RESUME || request == WDIOC_SETOPTIONS)) return when;
        }
        sleep_ms(5);
    }
    return -1;
}

void stop(pid_t process) {
    kill(process, SIGKILL);
    while (kill(process, 0) == 0) sleep_ms(5);
}

// Milliseconds from the start of a program to its watchdog running, the middle of some.
double start_to_armed(const Command& command, const char* log) {
    std::array<double, kStarts> taken{};
    for (double& ms : taken) {
        const Started started = start(command);
        const int64_t armed = armed_after(started.moment, log);
        stop(started.process);
        if (armed < 0) return -1;
        ms = static_cast<double>(armed - started.moment) / 1e6;
    }
    std::sort(taken.begin(), taken.end());
    return taken[kStarts / 2];
}

// The sum of the numbers behind a name in a file of /proc.
long sum_of(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    long sum = 0;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with(name)) sum += strtol(line.c_str() + name.size(), nullptr, 10);
    }
    return sum;
}

struct Use {
    long switches;
    int64_t cpu_ns;
};

Use use_of(pid_t process) {
    Use use{0, -1};
    const std::string folder = "/proc/" + std::to_string(process) + "/task";
    for (const auto& task : std::filesystem::directory_iterator(folder)) {
        const std::string status = task.path().string() + "/status";
        use.switches +=
            sum_of(status, "voluntary_ctxt_switches:") + sum_of(status, "nonvoluntary_ctxt_switches:");
    }
    clockid_t clock{};
    if (clock_getcpuclockid(process, &clock) == 0) use.cpu_ns = nanoseconds(clock);
    return use;
}

void beat(uint32_t word) {
    for (const char* path : {"/tmp/encode_to_sentrel", "/tmp/mediaguard_to_sentrel"}) {
        const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (pwrite(fd, &word, sizeof word, 0) != sizeof word) perror(path);
        close(fd);
    }
}

struct Watched {
    const char* name;
    Command command;
    pid_t process = -1;
    double armed_ms = -1;
    Use before{};
};

void report(const Watched& watched, int seconds) {
    const Use now = use_of(watched.process);
    const std::string folder = "/proc/" + std::to_string(watched.process);
    const std::string memory = folder + "/smaps_rollup";
    // A machine's first file system keeps its files in memory, and all of it is dirty to the kernel, whoever wrote it or not.
    printf(
        "@@ figures %s parent %ld armed_ms %.1f anonymous_kib %ld private_kib %ld resident_kib %ld "
        "switches_minute %.0f cpu_ms_minute %.1f\n",
        watched.name, sum_of(folder + "/status", "PPid:"), watched.armed_ms, sum_of(memory, "Anonymous:"),
        sum_of(memory, "Private_Dirty:") + sum_of(memory, "Private_Clean:"), sum_of(memory, "Rss:"),
        static_cast<double>(now.switches - watched.before.switches) * 60 / seconds,
        static_cast<double>(now.cpu_ns - watched.before.cpu_ns) / 1e6 * 60 / seconds);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 2;
    const int seconds = atoi(argv[1]);
    const char* log = argv[3];
    const Command busybox = {"/bin/busybox", "watchdog", "-F", "-t", "200ms"};
    Watched all[] = {{"sentrel", {argv[2]}}, {"busybox", busybox}};
    uint32_t word = 1;
    beat(word);
    for (Watched& watched : all) {
        Command command = watched.command;
        if (command.size() > 1) command.push_back("/dev/misc/wdt");
        watched.armed_ms = start_to_armed(command, log);
    }
    all[1].command.push_back(argv[4]);
    for (Watched& watched : all) watched.process = start(watched.command).process;
    for (int second = 0; second < kSettledAfterS + seconds; ++second) {
        if (second == kSettledAfterS) {
            for (Watched& watched : all) watched.before = use_of(watched.process);
        }
        beat(++word);
        sleep_ms(1000);
    }
    for (const Watched& watched : all) report(watched, seconds);
    for (const Watched& watched : all) stop(watched.process);
    return 0;
}
