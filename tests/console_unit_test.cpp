// Messages on consoles that are slow, stuck, closed, gone or full. Each body runs in a child process whose
// standard output and error are the console, in real time: the board's clock does not wait for a console.
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "daemon/clone_task.h"
#include "daemon/process.h"
#include "helpers/console.h"
#include "libmarl/hwinfo.h"
#include "libmarl/system.h"
#include "sim.h"

namespace {

using namespace marl;
using console::Console;
using console::Kind;
using Clock = std::chrono::steady_clock;

// A process whose standard output and error are a descriptor; a signal ends one that hangs.
pid_t start(int streams, const std::function<void()>& body) {
    const pid_t child = fork();
    if (child != 0) return child;
    alarm(10);
    console::become_streams(streams);
    body();
    _exit(0);
}

// 0 when the process has ended well.
int end_of(pid_t child) {
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

// Reads `rate` bytes a second until the process has ended well and everything is there.
// `longest` takes the longest time between two looks, where somebody wants to know.
std::string drain(const Console& console, pid_t child, size_t rate, Clock::duration* longest = nullptr) {
    std::string text;
    int status = -1;
    auto before = Clock::now();
    for (bool last = false; !last;) {
        if (longest != nullptr) *longest = std::max(*longest, Clock::now() - before);
        before = Clock::now();
        last = waitpid(child, &status, WNOHANG) != 0;
        const std::string piece = console.take(rate / 100);
        text += piece;
        last = last && piece.empty();
        poll(nullptr, 0, 10);
    }
    EXPECT_EQ(status, 0);
    return text;
}

TEST(Console, ThatIsSlowGetsEveryLine) {
    for (const Kind kind : {Kind::CookedTerminal, Kind::RawTerminal}) {
        SCOPED_TRACE(static_cast<int>(kind));
        std::string text;
        // A reader that a busy machine kept from reading was not slow but away: another try.
        Clock::duration longest = std::chrono::seconds(1);
        for (int tries = 0; tries < 10 && longest > std::chrono::milliseconds(50); ++tries) {
            const Console console(kind);
            console.fill(300);
            const pid_t writer = start(console.writer(), [] {
                for (int i = 0; i < 8; ++i) print_system_info();
            });
            longest = {};
            text = drain(console, writer, 11'500, &longest);
        }
        if (longest > std::chrono::milliseconds(50))
            GTEST_SKIP() << "the machine is too busy to read steadily";
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8 * 23);
    }
}

constexpr rlimit kNone{3, 3};  // of descriptors: a console can only be asked whether it has room

// Ends with 0 when none of it waited, but for the first message of each stream.
void say_much() {
    const auto start = Clock::now();
    for (int i = 0; i < 1000; ++i) diag::line("nobody reads this");
    setrlimit(RLIMIT_NOFILE, &kNone);
    for (int i = 0; i < 1000; ++i) diag::err("nor this\n");
    my_system_call("true");
    _exit(Clock::now() - start < std::chrono::seconds(3) ? 0 : 1);
}

void have_children_say_much() {
    sentrel::prepare_process();
    _exit(end_of(start(STDOUT_FILENO, [] {
        const std::string block(1000, 'y');
        for (int i = 0; i < 2000 && write(1 + i % 2, block.data(), block.size()) != 0; ++i) continue;
    })));
}

TEST(Console, ThatIsStuckHoldsNobodyUpAndComesBack) {
    for (const Kind kind : console::kKinds) {
        SCOPED_TRACE(static_cast<int>(kind));
        for (const auto& body : {say_much, have_children_say_much}) {
            const Console console(kind);
            console.fill();
            EXPECT_EQ(end_of(start(console.writer(), body)), 0);
            EXPECT_EQ(fcntl(console.writer(), F_GETFL) & O_NONBLOCK,
                      kind == Kind::Socket ? O_NONBLOCK * (body != say_much) : 0)
                << "a stream that others share stays as it is";
        }
    }
}

TEST(Console, ThatIsReadAgainGetsWholeLinesAgain) {
    const Console console(Kind::CookedTerminal);
    console.fill();
    const pid_t writer = start(console.writer(), [] {
        diag::line("lost");
        while (diag::line("tried") < 6) poll(nullptr, 0, 10);
        diag::line("the last one");
    });
    poll(nullptr, 0, 200);
    EXPECT_TRUE(drain(console, writer, 1'000'000).ends_with("tried\r\nthe last one\r\n"));
}

TEST(Console, ThatIsGoneOrAtItsLimitEndsNobody) {
    Console gone(Kind::Pipe);
    const pid_t after = start(gone.writer(), [&gone] {
        gone.hang_up();
        poll(nullptr, 0, 50);
        errno = ENOTDIR;
        const bool dropped = diag::line("to nobody") == -1 && diag::err("to nobody\n") == -1;
        _exit(dropped && errno == ENOTDIR ? 0 : 1);
    });
    gone.hang_up();
    EXPECT_EQ(end_of(after), 0);

    const int file = memfd_create("log", MFD_CLOEXEC);
    const pid_t limited = start(file, [] {
        const rlimit limit{100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0; i < 100; ++i) diag::line("a log file has a size limit");
        sigset_t pending;
        sigpending(&pending);
        _exit(sigismember(&pending, SIGXFSZ));
    });
    EXPECT_EQ(end_of(limited), 0);
    EXPECT_EQ(lseek(file, 0, SEEK_END), 100);
    close(file);
}

// Its creator's errno is its own: put back, an old value would stand for that of a call of the creator's.
TEST(Console, LeavesErrnoAsItIsOnTheStackOfACloneTask) {
    if (getenv("MARL_SIM_CLONE") != nullptr) GTEST_SKIP() << "a thread here";
    const pid_t creator = start(STDOUT_FILENO, [] {
        static std::atomic<int> left = 0;
        close(STDOUT_FILENO);
        const auto task = [](void*) {
            errno = ENOTDIR;
            diag::line("to nobody");
            left = errno;
            return 0;
        };
        int id = 0;
        if (sentrel::clone_thread_create(&id, task, nullptr) != 0) _exit(2);
        sleep_ms(100);
        _exit(left == 0 || left == ENOTDIR ? 1 : 0);
    });
    EXPECT_EQ(end_of(creator), 0);
}

// Whatever is closed at the start, no device takes the number of a stream.
TEST(Console, ThatIsClosedIsNoDevice) {
    sim::load("");
    for (unsigned closed = 0; closed < 8; ++closed) {
        SCOPED_TRACE(closed);
        const Console console(Kind::Pipe);
        const pid_t writer = start(console.writer(), [closed] {
            console::close_streams(closed);
            const int device = open_file("/dev/mtd/7", O_RDWR | O_CREAT, 0644);
            const int link = open_socket(AF_UNIX, SOCK_DGRAM, 0);
            diag::line("into the flash");
            diag::err("into the flash\n");
            _exit(device > 2 && link > 2 && lseek(device, 0, SEEK_END) == 0 ? 0 : 1);
        });
        EXPECT_EQ(end_of(writer), 0);
    }
}

TEST(Console, GetsOneWholeMessageAtATime) {
    const std::string longer(2000, 'm'), error = "\033[0;32;31m[libmarl] ERROR (src|fn|7): mmm";
    const auto fail = [&](const char* format) { diag::error({"src", "fn", 7}, format, longer.c_str()); };
    const struct {
        std::function<void()> say;
        std::string start, end;
    } cases[] = {
        {[&] { fail("%s\n"); }, error, "m\n\033[m"},
        {[&] { fail("%s"); }, error, "m\033[m"},
        {[&] { diag::out("%s\n\033[m", longer.c_str()); }, "mmm", "m\n\033[m"},
        {[&] { setrlimit(RLIMIT_NOFILE, &kNone), diag::line(longer.c_str()); }, "mmm", "m\n"},
        {[&] { diag::err("%s", std::string(diag::kMessageMax, 'm').c_str()); }, "mmm", "m"},
    };
    for (const auto& one : cases) {
        const Console console(Kind::Pipe);
        const std::string text = drain(console, start(console.writer(), one.say), 1'000'000);
        EXPECT_EQ(text.size(), size_t{diag::kMessageMax} - 1);
        EXPECT_TRUE(text.starts_with(one.start) && text.ends_with(one.end)) << text;
    }
}

}  // namespace
