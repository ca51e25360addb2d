// The runs of one scenario, each in a process of its own: scripts/sweep says which call fails, and judges.
//
// usage: sweep DESCRIPTOR FUNCTION PROMISES [FILE...], with the board's script on standard input up to a line "."; then each line is
// the faults of a run, separated by ';' and "@SECONDS " before those that come later; or "cut N", a power cut and what
// comes after it; "plant KIND", what is broken from then on; "tells TEXT", what some run has to say, and "untold", for what none
// has said; or "journal", for that of the last run. The answer to a run
// on DESCRIPTOR is "met|unmet CODE SECONDS goes|stopped", tab, and what does not hold; CODE is how the board ended the process, -1 when
// it did not.
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "sim.h"

namespace {

using Texts = std::vector<std::string>;

constexpr const char* kFired = ": call ";  // in the journal's line of a fault
constexpr unsigned kSeconds = 20;          // of real time, for a run that hangs
constexpr double kGoesOn = 15;             // the lines are used at least that often
constexpr long kHeapSlack = 640;           // split blocks, and what threads keep that are on their way out
constexpr const char* kStall =
    "beat /tmp/encode_to_sentrel every 1\nbeat /tmp/mediaguard_to_sentrel every 1 until 12\nat 90 cut now\n";
constexpr int kReset = 3, kCut = 6;  // how the board ends a process

struct Outcome {
    int results[2];  // of the call, and of the same call without the fault
    char found[2][256];
    long descriptors, mappings, threads, heap, grown[2];  // the heap has grown, in all and by each call
};

// What a run leaves for the process that started it.
struct Shared : Outcome {
    bool is_over, fired, goes_on;
    int code;
    double time;
    char problems[4096];
};
struct Journal {
    size_t size;
    char text[4U << 20];
};

Shared* shared = nullptr;
Journal* kept = nullptr;
const char* function_name;  // in calls.cpp
bool is_told, is_atomic, is_exact, is_unreported;
Texts paths;
std::string board, plant;
FILE* answers = nullptr;
pid_t running = 0;  // the process of a run
bool cutting = false;
long heap_before = 0, heap_grown = 0;
// Without a fault: what is stored before and after, what is said, and how it ends.
Texts before, after;
std::set<std::string> usual, untold;
Outcome good;

__attribute__((format(printf, 1, 2))) void problem(const char* format, ...) {
    const size_t used = strlen(shared->problems);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(shared->problems + used, sizeof shared->problems - used, format, arguments);
    va_end(arguments);
    strncat(shared->problems, "; ", sizeof shared->problems - strlen(shared->problems) - 1);
}

long heap_in_use() {
    const auto heap = mallinfo2();
    return static_cast<long>(heap.uordblks + heap.hblkhd);
}

// A thread that is over is on its way out for a while.
long threads() {
    const auto count = [] {
        const std::filesystem::directory_iterator tasks("/proc/self/task");
        return std::distance(begin(tasks), end(tasks));
    };
    const timespec moment{0, 200'000};
    for (int i = 0; i < 100 && count() > std::max(1L, good.threads); ++i)
        clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    return count();
}

void check_resources(bool judged) {
    Outcome& now = *shared;
    for (int fd = 0; fd < 900; ++fd) now.descriptors += fcntl(fd, F_GETFD) >= 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) now.mappings += line.find(sim::root()) != line.npos;
    now.threads = threads();
    now.heap = heap_grown;
    if (!judged) return;
    const auto compare = [](const char* what, long has, long most) {
        if (has > most) problem("%ld %s instead of %ld", has, what, most);
    };
    compare("descriptors", now.descriptors, good.descriptors);
    compare("mappings", now.mappings, good.mappings);
    compare("threads", now.threads, good.threads);
    compare("bytes of memory", now.heap - kHeapSlack, good.heap);
}

Texts files() {
    Texts texts;
    for (const std::string& path : paths) {
        std::ostringstream text;
        std::ifstream file(sim::root() + path, std::ios::binary);
        if (file) text << "+" << file.rdbuf();
        texts.push_back(text.str());
        const bool is_text = path.starts_with("/mnt");  // at worst with empty lines behind it
        while (is_text && texts.back().ends_with("\n")) texts.back().pop_back();
    }
    return texts;
}

void check_files(const Texts& stored) {
    for (size_t i = 0; i < stored.size(); ++i) {
        const bool is_torn = stored[i] != before[i] && stored[i] != after[i];
        if (is_torn && is_atomic) problem("%s is neither old nor new", paths[i].c_str());
    }
}

// What was said, without its time; what the console did not take was not.
std::set<std::string> said(const std::string& journal) {
    std::set<std::string> found;
    std::istringstream lines(journal);
    for (std::string time, line; lines >> time && std::getline(lines, line);) {
        const bool is_said = line.starts_with(" out ") || line.starts_with(" err ");
        if (is_said && line.find("\" -> E") == line.npos) found.insert(line);
    }
    return found;
}

void keep_journal() {
    const std::string journal = sim::journal();
    kept->size = std::min(journal.size(), sizeof kept->text);
    memcpy(kept->text, journal.data(), kept->size);
    shared->is_over = true;
}

void check_call(const Texts& stored, const std::string& journal) {
    const int result = shared->results[0];
    const bool is_new = stored == after, is_same = result == good.results[0];
    const auto more = said(journal);
    const bool told = !std::includes(usual.begin(), usual.end(), more.begin(), more.end());
    const bool is_found = memcmp(shared->found[0], good.found[0], sizeof good.found[0]) == 0;
    const bool visible = !is_same || !is_found || (!is_new && !is_unreported);
    if (is_same && !told && !is_new && !is_unreported) problem("done (%d), and not stored", result);
    if (result < -1 || result > good.results[0]) problem("the result %d", result);
    if (visible && !told && is_told) problem("failed (%d) without a message", result);
    if (is_exact && is_same && !(is_found && is_new)) problem("done (%d), with %s", result, shared->found[0]);
    check_files(stored);
}

// What a broken library would do.
void do_damage(int& result) {
    const auto is = [](const char* name) { return plant == name; };
    if (is("descriptor") && dup(0) < 0) abort();
    [[maybe_unused]] static void* volatile lost = nullptr;  // seen by no compiler
    if (is("memory")) lost = malloc(1000);
    if (is("mapping"))
        mmap(nullptr, 1, PROT_READ, MAP_SHARED,
             open((std::string(sim::root()) + "/.boots").c_str(), O_RDONLY), 0);
    if (is("thread"))
        std::thread([] {
            for (;;) pause();
        }).detach();
    if (is("crash")) abort();
    while (is("hang")) pause();
    if (is("torn")) std::ofstream(sim::root() + paths.at(0), std::ios::trunc) << "torn";
    if (is("lie")) result = good.results[0];
    if (is("slow")) usleep(900'000'000);
}

using Function = int (*)(std::string&);

std::string own_path() { return std::filesystem::read_symlink("/proc/self/exe").string(); }

Function find_function(const char* name) {
    const std::string path = own_path();
    void* module = dlopen((path.substr(0, path.rfind('/')) + "/libsweep_calls.so").c_str(), RTLD_NOW);
    auto* function = module != nullptr ? reinterpret_cast<Function>(dlsym(module, name)) : nullptr;
    if (function != nullptr) return function;
    fprintf(stderr, "%s\n", dlerror());
    abort();
}

void do_call(Function function, int turn) {
    std::string found;
    heap_before = turn > 0 ? heap_in_use() : heap_before;
    int& result = shared->results[turn] = function(found);
    memcpy(shared->found[turn], found.data(), std::min(found.size(), sizeof shared->found[turn]));
    std::string().swap(found);
    const bool damages = turn == 0 && !plant.empty() && sim::journal().find(kFired) != std::string::npos;
    if (damages) do_damage(result);
    heap_grown += shared->grown[turn] = heap_in_use() - heap_before;
}

void run_calls() {
    const Function function = find_function(function_name);
    do_call(function, 0);
    const std::string journal = sim::journal();
    shared->fired = journal.find(kFired) != journal.npos;
    shared->time = sim::now();
    if (shared->fired) check_call(files(), journal);
    if (cutting) return keep_journal();
    sim::run("fault none");
    do_call(function, 1);
    if (shared->fired && plant == "poison") --shared->results[1];
    if (shared->fired && (shared->results[1] != good.results[1] ||
                          memcmp(shared->found[1], good.found[1], sizeof good.found[1]) != 0))
        problem("again: %d %s instead of %d %s", shared->results[1], shared->found[1], good.results[1],
                good.found[1]);
    if (shared->fired && files() != after) problem("again: not stored");
    usleep(1'000'000);  // threads that are to end do
    check_resources(shared->fired);
    keep_journal();
}

void forget_told() {
    const std::string_view journal(kept->text, kept->size);
    std::erase_if(untold, [&](const std::string& text) { return journal.find(text) != journal.npos; });
}

void print_untold() {
    for (const std::string& text : untold) fprintf(answers, "%s\n", text.c_str());
    fputs(".\n", answers);
}

// Everything from the loading of the library on.
void run_child(const std::string& script, const char* function, bool restarted) {
    running = getpid();
    alarm(kSeconds);
    restarted ? sim::restart(script.c_str()) : sim::load(script.c_str());
    heap_before = heap_in_use();
    std::string found;
    strcmp(function, "daemon") != 0 ? run_calls() : _exit(64 + find_function(function)(found));
}

void run(const std::string& script, const char* function, bool restarted = false) {
    *shared = {};
    shared->code = -1;
    kept->size = 0;
    const pid_t child = fork();
    if (child == 0) {
        run_child(script, function, restarted);
        _Exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status))
        problem(WTERMSIG(status) == SIGALRM ? "hangs" : "killed by signal %d", WTERMSIG(status));
    if (WIFEXITED(status) && !shared->is_over) problem("ended with status %d", WEXITSTATUS(status));
    forget_told();
}

void run_clean() {
    sim::load(board.c_str());
    before = files();
    for (int i = 0; i < 2; ++i) {  // once more, now that what is known of it has taken its memory
        run(board, function_name);
        after = files();
        usual = said({kept->text, kept->size});
        good = *shared;
    }
    if (good.results[0] >= 0 && good.grown[1] <= kHeapSlack) return;
    fprintf(stderr, "%s without a fault: %d, keeps %ld\n", function_name, good.results[0], good.grown[1]);
    exit(1);
}

// The power goes before the Nth change, and comes back: the daemon supervises, and the same call completes.
void run_cut(const std::string& cut) {
    cutting = true;
    run(board + cut + "\n", function_name);
    const bool was_cut = shared->code == kCut;
    check_files(files());
    std::string problems = shared->problems;
    const bool is_daemon = strcmp(function_name, "daemon") == 0;
    run(board + kStall, "daemon", true);
    const bool lost = shared->code == kCut && !paths.empty() && paths[0] == "/dev/mtd/1";
    if (shared->code != kReset && !lost) problem("not supervised: ended with %d", shared->code);
    problems += shared->problems;
    if (!is_daemon) {
        run(board, function_name, true);
        if (shared->results[0] != good.results[0] || (files() != after && !lost))
            problem("repeated: %d", shared->results[0]);
        problems += shared->problems;
    }
    cutting = false;
    fprintf(answers, "%s\t%s\n", !was_cut ? "unmet" : lost ? "lost" : "met", problems.c_str());
}

void run_faults(std::string line) {
    std::string script;
    script.reserve(1U << 20);  // apart from the heap, whose use is to be the same in every run
    script = board;
    std::istringstream each(line);
    for (std::string fault; std::getline(each, fault, ';');) {
        const size_t moment = fault[0] == '@' ? fault.find(' ') + 1 : 0;
        script +=
            (moment > 0 ? "at " + fault.substr(1, moment - 1) : "") + "fault " + fault.substr(moment) + "\n";
    }
    if (plant == "message") script += "fault out write 1+ EIO\nfault err write 1+ EIO\n";
    run(script, function_name);
    fprintf(answers, "%s %d %.3f %s\t%s\n", shared->fired ? "met" : "unmet", shared->code, shared->time,
            shared->goes_on ? "goes" : "stopped", shared->problems);
}

template <class T>
T* share() {
    void* memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return new (memory) T;
}

}  // namespace

// The board has ended the process: for the daemon that is what everything leads to.
extern "C" void _exit(int code) {
    if (getpid() != running) _Exit(code);
    running = 0;
    heap_grown = heap_in_use() - heap_before;
    keep_journal();
    const std::string journal = sim::journal();
    const size_t last = journal.rfind("/dev/misc/gpio");
    const size_t line = last != journal.npos ? journal.rfind('\n', last) + 1 : 0;
    shared->goes_on = sim::now() - strtod(journal.c_str() + line, nullptr) < kGoesOn;
    shared->fired = journal.find(kFired) != journal.npos;
    shared->time = sim::now();
    shared->code = code;
    if (!cutting) check_files(files());
    if (!cutting) check_resources(shared->fired && code == kReset);
    _Exit(code);
}

int main(int argc, char** argv) {
    const std::string root = "/dev/shm/sweep." + std::to_string(getpid());
    if (sim::root() != root) {  // memory that was freed is not kept for later, so that it can be counted
        setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0", 1);
        setenv("MARL_SIM_ROOT", root.c_str(), 1);
        execv("/proc/self/exe", argv);
    }
    answers = fdopen(atoi(argv[1]), "w");
    static char buffer[BUFSIZ];  // not from the heap, whose use is compared
    setvbuf(answers, buffer, _IOLBF, sizeof buffer);
    shared = share<Shared>();
    kept = share<Journal>();
    function_name = argv[2];
    is_told = strstr(argv[3], "told") != nullptr;
    is_atomic = strstr(argv[3], "atomic") != nullptr;
    is_exact = strstr(argv[3], "exact") != nullptr;
    is_unreported = strstr(argv[3], "unreported") != nullptr;
    paths.assign(argv + 4, argv + argc);
    std::string line;
    while (std::getline(std::cin, line) && line != ".") board += line + "\n";
    run_clean();
    while (std::getline(std::cin, line)) {
        if (line == "journal")
            fprintf(answers, "%.*s.\n", static_cast<int>(kept->size), kept->text);
        else if (line == "untold")
            print_untold();
        else if (line.starts_with("tells "))
            untold.insert(line.substr(6)), forget_told();
        else if (line.starts_with("plant "))
            plant = line.substr(6);
        else
            line.starts_with("cut ") ? run_cut(line) : run_faults(line);
    }
    std::filesystem::remove_all(root);
}
