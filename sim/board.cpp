#include "board.h"

#include <dlfcn.h>
#include <sys/syscall.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "clock.h"
#include "clone.h"
#include "devices.h"
#include "journal.h"
#include "real.h"
#include "script.h"
#include "sim.h"

namespace sim {

constinit Real real{};

void find_real_functions() {
    if (real.syscall != nullptr) return;
#define SIM_FIND(name) real.name = reinterpret_cast<decltype(real.name)>(dlsym(RTLD_NEXT, #name));
    SIM_REAL_FUNCTIONS(SIM_FIND)
#undef SIM_FIND
}

namespace board {
namespace {

constexpr const char* kPrefixes[] = {"/dev", "/proc", "/sys", "/mnt", "/tmp", "/etc"};
// What stays the machine's own; a test framework keeps what it captures in the last.
constexpr const char* kPassed[] = {"/dev/null",  "/dev/tty",       "/dev/urandom",
                                   "/proc/self", "/etc/localtime", "/tmp/gtest_captured_"};
constexpr const char* kDirectories[] = {
    "/dev", "/dev/misc", "/dev/mtd", "/proc", "/proc/net", "/proc/qorzo", "/proc/bus", "/proc/bus/usb", "/mnt",
    "/mnt/mtd", "/mnt/mtd/Config", "/mnt/mtd/Log", "/mnt/backup", "/mnt/backup/Config", "/mnt/custom", "/tmp", "/etc",
    "/sys", "/sys/devices", "/sys/devices/platform"};
constexpr size_t kDescriptors = 1024;

std::atomic<int> stage{0};
char root_path[kPathSize / 2] = "";
size_t root_length = 0;
bool root_is_ours = false;
bool made_before = false;
pid_t owner = 0;
int pending_exit = 0;
constinit OpenFile files[kDescriptors];

bool starts(const char* text, const char* prefix, size_t length) { return strncmp(text, prefix, length) == 0; }

bool board_prefix(const char* path) {
    for (const char* prefix : kPrefixes) {
        const size_t length = strlen(prefix);
        if (starts(path, prefix, length) && (path[length] == '/' || path[length] == '\0')) return true;
    }
    return false;
}

bool passed(const char* path) {
    for (const char* prefix : kPassed) {
        if (starts(path, prefix, strlen(prefix))) return true;
    }
    const char* list = getenv("MARL_SIM_PASS");
    while (list != nullptr && *list != '\0') {
        const size_t length = strcspn(list, ":");
        if (length > 0 && starts(path, list, length)) return true;
        list += length + (list[length] == ':' ? 1 : 0);
    }
    return false;
}

// A clone task cannot end the process it shares: it asks, and the process does it here.
void end_requested(int) {
    clean_up();
    _exit(pending_exit);
}

void forked() {
    clone_task::forget_all();
    clock::forget_others();
}

void choose_root() {
    const char* wanted = getenv("MARL_SIM_ROOT");
    if (wanted != nullptr && *wanted != '\0') {
        snprintf(root_path, sizeof root_path, "%s", wanted);
        real.mkdir(root_path, 0755);
    } else {
        snprintf(root_path, sizeof root_path, "/tmp/board.XXXXXX");
        root_is_ours = mkdtemp(root_path) != nullptr;
        if (!root_is_ours) abort();
    }
    root_length = strlen(root_path);
    owner = getpid();
}

void make_files() {
    char path[kPathSize];
    snprintf(path, sizeof path, "%s/.made", root_path);
    made_before = real.access(path, F_OK) == 0;
    for (const char* volatile_part : {"/tmp", "/proc", "/sys"}) {
        if (made_before && place_inside(volatile_part, path)) remove_tree(path, true);
    }
    for (const char* directory : kDirectories) {
        if (place_inside(directory, path)) real.mkdir(path, 0755);
    }
    devices::reset();
}

// Descriptors of flash partitions that the program holds lead to the new board's flash.
void move_descriptors() {
    char path[kPathSize];
    for (int fd = 0; fd < static_cast<int>(kDescriptors); ++fd) {
        const OpenFile* file = tracked(fd);
        if (file == nullptr || !starts(file->name, "/dev/", 5) || !place_inside(file->name, path)) continue;
        const int fresh = real.open(path, (file->flags & ~(O_CREAT | O_TRUNC | O_EXCL)) | O_CLOEXEC);
        if (fresh < 0) continue;
        dup3(fresh, fd, file->flags & O_CLOEXEC);
        real.close(fresh);
    }
}

void power_on(const char* script_text) {
    clone_task::prepare();
    make_files();
    script::reset();
    record::Line("board").add(" start");
    if (script_text != nullptr && !script::apply(script_text)) _exit(2);
    made_before = false;
    write_file("/.made", O_CREAT | O_TRUNC, "", 0);
}

// Maps a script file; it stays mapped.
const char* read_script(const char* path) {
    if (path == nullptr) return nullptr;
    const int fd = real.open(path, O_RDONLY | O_CLOEXEC);
    struct stat info {};
    if (fd < 0 || fstat(fd, &info) != 0) {
        fprintf(stderr, "simulated board: cannot read %s\n", path);
        _exit(2);
    }
    auto* text = static_cast<char*>(calloc(static_cast<size_t>(info.st_size) + 1, 1));
    if (text != nullptr && real.read(fd, text, static_cast<size_t>(info.st_size)) < 0) text[0] = '\0';
    real.close(fd);
    return text;
}

__attribute__((constructor)) void boot_at_load() { boot(); }
__attribute__((destructor)) void stop_at_exit() {
    if (getpid() == owner) clone_task::report_use();
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
    clock::start(!is("MARL_SIM_TIME", "real"));
    clone_task::use_threads(is("MARL_SIM_CLONE", "thread"));
    choose_root();
    record::open(getenv("MARL_SIM_JOURNAL"));
    pthread_atfork(nullptr, nullptr, forked);
    signal(SIGRTMIN + 7, end_requested);
    power_on(read_script(getenv("MARL_SIM_BOARD")));
    if (const char* seconds = getenv("MARL_SIM_FOR")) script::end_at(seconds);
}

void clean_up() {
    if (getpid() != owner) return;
    clone_task::kill_all();
    if (root_is_ours) remove_tree(root_path, false);
}

void end(const char* reason, int exit_code) {
    record::Line("board").add(" %s", reason);
    clone_task::report_use();
    if (clone_task::inside()) {
        pending_exit = exit_code;
        kill(owner, SIGRTMIN + 7);
        for (;;) pause();
    }
    clean_up();
    _exit(exit_code);
}

const char* place(const char* path, char (&out)[kPathSize]) {
    if (path == nullptr || !board_prefix(path) || root_length == 0) return nullptr;
    if (starts(path, root_path, root_length) || passed(path)) return nullptr;
    snprintf(out, sizeof out, "%s%s", root_path, path);
    return out;
}

bool place_inside(const char* path, char (&out)[kPathSize]) {
    if (starts(path, root_path, root_length)) path += root_length;
    if (path[0] != '/' || strstr(path, "..") != nullptr) return false;
    if (!board_prefix(path) && path[1] != '.') return false;
    return snprintf(out, sizeof out, "%s%s", root_path, path) < static_cast<int>(sizeof out);
}

OpenFile* tracked(int descriptor) {
    if (descriptor < 0 || descriptor >= static_cast<int>(kDescriptors)) return nullptr;
    OpenFile& file = files[descriptor];
    return file.tracked ? &file : nullptr;
}

void track(int descriptor, const char* name, int flags) {
    if (descriptor < 0 || descriptor >= static_cast<int>(kDescriptors)) return;
    OpenFile& file = files[descriptor];
    snprintf(file.name, sizeof file.name, "%s", name);
    file.flags = flags;
    file.model = devices::find(name);
    file.tracked = true;
}

void forget(int descriptor) {
    if (OpenFile* file = tracked(descriptor)) file->tracked = false;
}

bool write_file(const char* path, int open_flags, const void* data, size_t size, off_t offset) {
    char there[kPathSize];
    if (!place_inside(path, there)) return false;
    const int fd = real.open(there, open_flags | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    const ssize_t done = (open_flags & O_APPEND) != 0 ? real.write(fd, data, size)
                                                      : real.pwrite64(fd, data, size, offset);
    real.close(fd);
    return done == static_cast<ssize_t>(size);
}

// By the bare system calls: opendir() would take memory, which a clone task must not.
bool remove_tree(const char* path, bool contents_only) {
    struct Entry {
        uint64_t inode;
        int64_t offset;
        uint16_t length;
        uint8_t type;
        char name[1];
    };
    alignas(Entry) char buffer[1024];
    char below[kPathSize];
    if (!contents_only && real.unlink(path) == 0) return true;
    for (long size = 1; size > 0;) {
        // From the start each time round: what was read is gone by then.
        const int fd = real.open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) return false;
        size = real.syscall(SYS_getdents64, fd, buffer, sizeof buffer);
        real.close(fd);
        bool any = false;
        for (long at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const Entry*>(buffer + at);
            at += entry->length;
            if (strcmp(entry->name, ".") == 0 || strcmp(entry->name, "..") == 0) continue;
            snprintf(below, sizeof below, "%s/%s", path, entry->name);
            any = remove_tree(below, false) || any;
        }
        if (!any) break;
    }
    return contents_only || real.rmdir(path) == 0;
}

bool was_made_before() { return made_before; }

}  // namespace board

void load(const char* script_text) {
    board::boot();
    clone_task::kill_all();
    clock::restart();
    record::clear();
    if (getpid() != board::owner) {
        board::choose_root();  // the root so far belongs to the parent of this process
    } else {
        board::remove_tree(board::root_path, true);
    }
    board::power_on(script_text);
    board::move_descriptors();
}

void run(const char* script_lines) {
    board::boot();
    if (!script::apply(script_lines)) abort();
}

const char* root() {
    board::boot();
    return board::root_path;
}

std::string journal() { return record::text(); }
void clear_journal() { record::clear(); }
double now() { return static_cast<double>(clock::now()) / 1e9; }

}  // namespace sim
