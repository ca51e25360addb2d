#include "board.h"

#include <dlfcn.h>
#include <sys/syscall.h>

#include <atomic>
#include <csignal>

#include "build_word.h"
#include "clock.h"
#include "clone.h"
#include "devices.h"
#include "journal.h"
#include "launch/run.h"
#include "real.h"
#include "script.h"
#include "script/devices.h"
#include "sim.h"

namespace sim {

const char build_word[] = MARL_SIM_BUILD_WORD;
constinit Real real{};

void find_real_functions() {
    if (real.syscall != nullptr) return;
#define SIM_FIND(name) real.name = reinterpret_cast<decltype(real.name)>(dlsym(RTLD_NEXT, #name));
    SIM_REAL_FUNCTIONS(SIM_FIND)
#undef SIM_FIND
}

namespace board {
namespace {

constexpr std::string_view kWritable[] = {"/dev/null", "/proc/self/fd"};
constexpr size_t kDescriptors = 1024;
constexpr size_t kLengthInEntry = 16, kNameInEntry = 19;  // of getdents64(2)

std::atomic<int> stage{0};
char root_path[kPathSize / 2] = "";
char home_path[kPathSize / 2] = "";  // the directory of this run, if it has one; it goes with it
pid_t owner = 0;
pid_t process = 0;  // whose board it is: the owner, or a child of its that loaded one anew
bool launched = false;
int pending_exit = 0;
constinit OpenFile files[kDescriptors];

// By which a clone task asks for the end of the process that it shares.
int end_signal() { return SIGRTMIN + 7; }

void choose_root() {
    const char* wanted = getenv("MARL_SIM_ROOT");
    const char* home = getenv(launch::kHomeVariable);
    const bool is_wanted = wanted != nullptr && *wanted != '\0';
    launched = home != nullptr;
    if (launched) {
        snprintf(home_path, sizeof home_path, "%s", home);
    } else if (!is_wanted && !launch::make_home(home_path, false)) {
        abort();
    }
    snprintf(root_path, sizeof root_path, "%s", is_wanted ? wanted : home_path);
    real.mkdir(root_path, 0755);
    owner = getpid();
}

void power_on(char* orders) {
    process = getpid();
    clone_task::prepare();
    devices::reset();
    script::reset();
    script::apply(orders);
    script::run_due();
}

// What the launcher has made of the script. A test program starts with a board that is as good as empty.
char* read_orders() {
    static char text[512U << 10];
    snprintf(text, sizeof text, "%s", script::kEmptyBoard);
    if (!launched) return text;
    char path[kPathSize];
    snprintf(path, sizeof path, "%s/%s", home_path, launch::kOrders);
    const int fd = real.open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t got = real.read(fd, text, sizeof text);
    real.close(fd);
    if (got < 0 || got == sizeof text) end("cannot read its orders", kBadScript);
    return text;
}

void report() {
    script::report_faults();
    clone_task::report_use();
}

__attribute__((constructor)) void boot_at_load() { boot(); }
__attribute__((destructor)) void stop_at_exit() {
    if (getpid() == owner) report();
    clean_up();
}

}  // namespace

void boot() {
    if (stage.load(std::memory_order_acquire) != 0 || stage.exchange(1) != 0) return;
    find_real_functions();
    const auto is = [](const char* name, const char* value) {
        const char* set = getenv(name);
        return set != nullptr && strcmp(set, value) == 0;
    };
    const bool real_time = is("MARL_SIM_TIME", "real");
    clock::start(!real_time);
    clone_task::use_threads(is("MARL_SIM_CLONE", "thread"));
    choose_root();
    record::open(getenv("MARL_SIM_JOURNAL"), getenv("MARL_SIM_ONLY"));
    signal(end_signal(), [](int) {
        clean_up();
        _exit(pending_exit);
    });
    power_on(read_orders());
    if (real_time) script::open_control(getenv("MARL_SIM_CONTROL"));
}

void clean_up() {
    if (getpid() != owner) return;
    clone_task::kill_all();
    if (home_path[0] != '\0') remove_tree(home_path, false);
}

void end(const char* reason, ExitCode code) {
    report();
    record::Line("board").add(" %s", reason);
    if (code == kBadScript) dprintf(2, "simulated board: %s\n", reason);
    if (clone_task::inside()) {
        pending_exit = code;
        real.kill(process, end_signal());
        for (;;) pause();
    }
    clean_up();
    _exit(code);
}

const char* place(const char* path, char (&out)[kPathSize]) {
    if (path == nullptr || !script::is_of_the_board(path)) return nullptr;
    // A source tree below /tmp, say, which tests need as it is.
    const char* passed = getenv("MARL_SIM_PASS");
    if (passed != nullptr && strncmp(path, passed, strlen(passed)) == 0) return nullptr;
    if (root_path[0] == '\0' || strncmp(path, root_path, strlen(root_path)) == 0) return nullptr;
    snprintf(out, sizeof out, "%s%s", root_path, path);
    // With real interfaces their counters are the kernel's, unless the script has others.
    const bool counters = devices::state.network && strcmp(path, "/proc/net/dev") == 0;
    if (counters && real.access(out, F_OK) != 0) snprintf(out, sizeof out, "%s", path);
    return out;
}

bool is_launched() { return launched; }
bool may_write(const char* path) {
    return !launched || (path != nullptr && script::is_under(kWritable, path));
}

bool place_inside(const char* path, char (&out)[kPathSize]) {
    if (path[0] != '/' || path[1] == '\0' || strstr(path, "..") != nullptr) return false;
    return snprintf(out, sizeof out, "%s%s", root_path, path) < static_cast<int>(sizeof out);
}

OpenFile* tracked(int descriptor) {
    if (descriptor < 0 || descriptor >= static_cast<int>(kDescriptors)) return nullptr;
    return files[descriptor].used ? &files[descriptor] : nullptr;
}

void track(int descriptor, const char* name) {
    if (descriptor >= static_cast<int>(kDescriptors)) return;
    OpenFile& file = files[descriptor];
    snprintf(file.name, sizeof file.name, "%s", name);
    file.model = &devices::find(name);
    file.used = true;
}

void forget(int descriptor) {
    if (OpenFile* file = tracked(descriptor)) file->used = false;
}

int open_file(const char* path, int flags) {
    char there[kPathSize];
    if (!place_inside(path, there)) return -1;
    if ((flags & O_CREAT) != 0) make_parents(there);
    return real.open(there, flags | O_CLOEXEC, 0644);
}

// Where everything is appended, the offset counts for nothing.
bool write_file(const char* path, int flags, std::string_view data, off_t offset) {
    const int fd = open_file(path, flags | O_WRONLY | O_CREAT);
    if (fd < 0) return false;
    const ssize_t done = real.pwrite(fd, data.data(), data.size(), offset);
    real.close(fd);
    return done == static_cast<ssize_t>(data.size());
}

void make_parents(char* place) {
    for (char* slash = place + strlen(root_path) + 1; (slash = strchr(slash, '/')) != nullptr; ++slash) {
        *slash = '\0';
        real.mkdir(place, 0755);
        *slash = '/';
    }
}

// By the bare system calls: opendir() would take memory, which a clone task must not.
bool remove_tree(const char* path, bool contents_only) {
    if (!contents_only && real.unlink(path) == 0) return true;
    const int fd = real.open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    alignas(uint64_t) char entries[1024];
    for (long size = 1; size > 0;) {
        size = real.syscall(SYS_getdents64, fd, entries, sizeof entries);
        for (long at = 0; at < size;) {
            const char* name = entries + at + kNameInEntry;
            at += *reinterpret_cast<const uint16_t*>(entries + at + kLengthInEntry);
            if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) continue;
            char below[kPathSize];
            snprintf(below, sizeof below, "%s/%s", path, name);
            remove_tree(below, false);
        }
    }
    real.close(fd);
    return contents_only || real.rmdir(path) == 0;
}

}  // namespace board

void start_again(std::string orders) {
    board::boot();
    clone_task::kill_all();
    clock::restart();
    record::clear();
    board::power_on(orders.data());
}

void start_anew(std::string orders) {
    board::boot();
    board::remove_tree(board::root_path, true);
    start_again(std::move(orders));
}

void follow(std::string orders) {
    board::boot();
    script::apply(orders.data());
    script::run_due();
}

const char* root() {
    board::boot();
    return board::root_path;
}

std::string journal() { return record::text(); }
void clear_journal() { record::clear(); }
double now() { return static_cast<double>(clock::now()) / 1e9; }

}  // namespace sim
