// Starts a program on the simulated board, or not at all.
//
// The loader takes LD_PRELOAD apart at blanks and colons, ignores it for programs with privileges and only
// warns of what it cannot load; the program would run on, and reach the machine. So everything that could
// keep the board out is looked at first, and at last the loader itself is asked whether it loads the board.
#include <elf.h>
#include <link.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "build_word.h"
#include "run.h"
#include "script/compiler.h"

namespace {

using sim::launch::kBootsFile;
using sim::launch::kHomeVariable;
using sim::script::Compiler;

constexpr int kRefused = 2;
constexpr char kSeparator = '\x1f';
constexpr const char* kLibrary = "libmarlsim.so";

char home[PATH_MAX] = "";
std::string preload;  // the board under a name that the loader leaves whole

[[noreturn]] __attribute__((format(printf, 1, 2))) void refuse(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    fputs("simulated board: not started: ", stderr);
    vfprintf(stderr, format, arguments);
    fputs("\n", stderr);
    va_end(arguments);
    if (*home != '\0') {
        std::error_code ignored;
        std::filesystem::remove_all(home, ignored);
    }
    exit(kRefused);
}

// --- Files as the loader sees them

class Image {
  public:
    explicit Image(const char* path) : path_(path) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC);
        struct stat info {};
        if (fd < 0 || fstat(fd, &info) != 0) refuse("%s: %s", path, strerror(errno));
        if (!S_ISREG(info.st_mode)) refuse("%s: not a regular file", path);
        const auto size = static_cast<size_t>(info.st_size);
        void* mapped = size > 0 ? mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0) : MAP_FAILED;
        if (mapped != MAP_FAILED) bytes_ = {static_cast<const char*>(mapped), size};
        close(fd);
        if (header() == nullptr || memcmp(header()->e_ident, ELFMAG, SELFMAG) != 0) {
            refuse("%s: not a program or library of this system", path);
        }
    }

    void must_be_like(const Image& other) const {
        const auto kind = [](const ElfW(Ehdr) & h) {
            return h.e_ident[EI_CLASS] << 24 | h.e_ident[EI_DATA] << 16 | h.e_machine;
        };
        if (kind(*header()) != kind(*other.header())) refuse("%s: built for another architecture", path_);
    }

    // The loader that it names; empty when it is linked statically.
    std::string_view loader() const {
        for (size_t i = 0; i < header()->e_phnum; ++i) {
            const auto* part = at<ElfW(Phdr)>(header()->e_phoff + i * sizeof(ElfW(Phdr)));
            if (part == nullptr || part->p_type != PT_INTERP) continue;
            return bytes_.substr(std::min<size_t>(part->p_offset, bytes_.size()), part->p_filesz);
        }
        return {};
    }

    bool contains(std::string_view text) const { return bytes_.find(text) != std::string_view::npos; }

  private:
    template <class T>
    const T* at(size_t offset) const {
        const bool inside = offset <= bytes_.size() && bytes_.size() - offset >= sizeof(T);
        return inside ? reinterpret_cast<const T*>(bytes_.data() + offset) : nullptr;
    }
    const ElfW(Ehdr) * header() const { return at<ElfW(Ehdr)>(0); }

    const char* path_;
    std::string_view bytes_;
};

// --- What must be true before

// With privileges to gain, the loader does not do as the environment says.
void check_privileges(const char* program) {
    struct stat info {};
    if (stat(program, &info) != 0) refuse("%s: %s", program, strerror(errno));
    if ((info.st_mode & (S_ISUID | S_ISGID)) != 0) refuse("%s: set-user-id or set-group-id", program);
    if (getxattr(program, "security.capability", nullptr, 0) >= 0) refuse("%s: has capabilities", program);
    if (getuid() != geteuid() || getgid() != getegid()) refuse("the user is not who started this");
}

void check_program(const char* program, const Image& own) {
    const Image image(program);
    image.must_be_like(own);
    if (image.loader().empty()) refuse("%s: linked statically", program);
    if (image.loader() != own.loader()) refuse("%s: made for another C library", program);
    if (access(program, X_OK) != 0) refuse("%s: %s", program, strerror(errno));
}

void check_library(const char* library, const Image& own) {
    const Image image(library);
    image.must_be_like(own);
    if (!image.contains(MARL_SIM_BUILD_WORD)) refuse("%s: of another build than this launcher", library);
}

// --- The script

void write_text(const std::string& path, const std::string& text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const bool done = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    if (!done) refuse("%s: %s", path.c_str(), strerror(errno));
    close(fd);
}

// How often the board was switched on, this time included. It counts in a file of its directory.
unsigned boot_number() {
    uint32_t before = 0;
    if (const char* root = getenv("MARL_SIM_ROOT")) {
        std::ifstream(std::string(root) + kBootsFile, std::ios::binary)
            .read(reinterpret_cast<char*>(&before), sizeof before);
    }
    return before + 1;
}

// Whatever is wrong with a script is told before anything is started.
std::string compile(Compiler& compiler, const char* script) {
    std::ostringstream text;
    if (script != nullptr) {
        errno = 0;
        std::ifstream file(script, std::ios::binary);
        if (!file) refuse("%s: %s", script, strerror(errno));
        text << file.rdbuf();
    }
    std::string orders = compiler.start(text.str(), getenv("MARL_SIM_BESIDE") != nullptr);
    for (const auto& [line, problem] : compiler.problems())
        fprintf(stderr, "simulated board: %s:%u: %s\n", script, line, problem.c_str());
    if (!compiler.problems().empty()) exit(kRefused);
    if (const char* seconds = getenv("MARL_SIM_FOR")) {
        const double nanos = std::min(strtod(seconds, nullptr), 9e9) * 1e9;
        orders += "0 " + std::to_string(std::llround(nanos)) + " end 0 end time\n";
    }
    return orders;
}

// For the runner: lines of standard input are told to a board that runs, after the number of its boot. An
// answer is one line: "error: ", "help: ", or "ok: " and the orders, separated by kSeparator.
int answer_lines(const char* script) {
    Compiler compiler(1);
    compile(compiler, script);
    for (std::string line; std::getline(std::cin, line);) {
        const size_t blank = std::min(line.find(' '), line.size());
        compiler.set_boot(static_cast<unsigned>(atoi(line.c_str())));
        line.erase(0, blank + 1);
        std::string orders = compiler.tell(line);
        std::replace(orders.begin(), orders.end(), '\n', kSeparator);
        const auto& problems = compiler.problems();
        std::cout << (line == "help"     ? "help: " + sim::script::known_lines()
                      : problems.empty() ? "ok: " + orders
                                         : "error: " + problems[0].text)
                  << std::endl;
    }
    return 0;
}

// --- Network

void make_network() {
    const auto user = std::to_string(getuid()), group = std::to_string(getgid());
    const bool is_root = geteuid() == 0;
    if (unshare(is_root ? CLONE_NEWNET : CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        refuse("the script wants a network of its own: %s", strerror(errno));
    }
    if (!is_root) {
        write_text("/proc/self/setgroups", "deny");
        write_text("/proc/self/uid_map", "0 " + user + " 1");
        write_text("/proc/self/gid_map", "0 " + group + " 1");
    }
    sim::launch::remember_network();
}

// --- The start

// The program with the variables that are for its loader alone; an emulator hands them to its guest.
[[noreturn]] void execute(char** program, const std::vector<std::string>& variables) {
    const char* const given = getenv("MARL_EMULATOR");  // set to nothing where the programs run by themselves
    std::string emulator = given != nullptr ? given : MARL_EMULATOR;
    std::vector<char*> command;
    for (char* word = strtok(emulator.data(), " "); word != nullptr; word = strtok(nullptr, " ")) {
        command.push_back(word);
    }
    const bool emulated = !command.empty();
    unsetenv("LD_PRELOAD");
    for (const std::string& variable : variables) {
        auto* text = const_cast<char*>(variable.c_str());
        if (!emulated) {
            putenv(text);
            continue;
        }
        command.insert(command.end(), {const_cast<char*>("-E"), text});
    }
    while (*program != nullptr) command.push_back(*program++);
    command.push_back(nullptr);
    emulated ? execvp(command[0], command.data()) : execv(command[0], command.data());
    refuse("%s: %s", command[0], strerror(errno));
}

// The loader lists what it would load, and starts nothing.
std::string ask_loader(char** program) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) refuse("%s", strerror(errno));
    for (int& end : ends) {  // the program's streams may be closed, and are nobody's to fill
        const int low = end;
        end = fcntl(low, F_DUPFD_CLOEXEC, sim::launch::kFirstDescriptor);
        close(low);
    }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        *home = '\0';  // its end is not the run's
        execute(program, {"LD_TRACE_LOADED_OBJECTS=1", "LD_PRELOAD=" + preload});
    }
    close(ends[1]);
    std::string list;
    char part[4096];
    for (ssize_t got = 0; (got = read(ends[0], part, sizeof part)) > 0;) {
        list.append(part, static_cast<size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) refuse("the loader cannot be asked");
    return list;
}

// What runs that were killed have left: nobody holds it locked.
void clear_left_behind() {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(sim::launch::kParent, ignored)) {
        const std::filesystem::path& path = entry.path();
        const bool is_home = path.filename().string().starts_with(sim::launch::kStart);
        const int fd = is_home ? sim::launch::lock(path.c_str(), LOCK_EX | LOCK_NB) : -1;
        if (fd < 0) continue;
        std::filesystem::remove_all(path, ignored);
        close(fd);
    }
}

void preload_board(const std::string& library, const std::string& orders) {
    clear_left_behind();
    if (!sim::launch::make_home(home, true))
        refuse("no directory below %s: %s", sim::launch::kParent, strerror(errno));
    setenv(kHomeVariable, home, 1);
    write_text(std::string(home) + "/" + sim::launch::kOrders, orders);
    preload = std::string(home) + "/" + kLibrary;
    if (symlink(library.c_str(), preload.c_str()) != 0) refuse("%s: %s", preload.c_str(), strerror(errno));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && strcmp(argv[1], "--tell") == 0) return answer_lines(argv[2]);
    if (argc < 2) refuse("usage: %s PROGRAM [ARGUMENT...]", argv[0]);
    char own_path[PATH_MAX] = {};
    if (readlink("/proc/self/exe", own_path, sizeof own_path - 1) < 0) refuse("/proc: %s", strerror(errno));
    const Image own(own_path);
    const std::string library = std::string(own_path, strrchr(own_path, '/') + 1) + kLibrary;
    check_privileges(argv[1]);
    check_program(argv[1], own);
    check_library(library.c_str(), own);
    Compiler compiler(boot_number());
    const std::string orders = compile(compiler, getenv("MARL_SIM_BOARD"));
    if (compiler.wants_network() && !sim::launch::has_own_network()) make_network();
    preload_board(library, orders);
    if (ask_loader(argv + 1).find("\t" + preload + " (") == std::string::npos) {
        refuse("%s: the loader leaves out the board", argv[1]);
    }
    execute(argv + 1, {"LD_PRELOAD=" + preload});
}
