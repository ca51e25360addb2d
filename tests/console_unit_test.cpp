// Messages on consoles that are slow, stuck, closed, gone or full. Each body runs in a child process whose standard
// output and error are the console, in real time: the board's clock does not wait for a console.
#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <string>

#include "base/diag.h"
#include "base/fd.h"
#include "daemon/process.h"
#include "gtest/gtest.h"
#include "helpers/console.h"
#include "libmarl/hwinfo.h"
#include "libmarl/system.h"
#include "sim.h"

namespace {

using namespace marl;
using console::Console;
using console::Kind;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kHung{10'000};

// A process whose standard output and error are a descriptor.
class Writer {
  public:
    Writer(int streams, const std::function<void()>& body) : pid_(fork()) {
        if (pid_ != 0) return;
        dup2(streams, STDOUT_FILENO);
        dup2(streams, STDERR_FILENO);
        body();
        _exit(0);
    }
    ~Writer() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    bool has_ended() {
        if (!ended_) ended_ = waitpid(pid_, &status_, WNOHANG) == pid_;
        return ended_;
    }
    // Its exit status once it has ended; 128 and the signal; -1 when it hangs.
    int wait() {
        const auto start = Clock::now();
        while (!has_ended()) {
            if (Clock::now() - start > kHung) return -1;
            poll(nullptr, 0, 1);
        }
        return WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
    }

  private:
    pid_t pid_;
    int status_ = 0;
    bool ended_ = false;
};

// Reads `rate` bytes a second until the writer has ended and everything is there.
std::string drain(const Console& console, Writer& writer, size_t rate) {
    std::string text;
    for (bool last = false; !last;) {
        last = writer.has_ended();
        const std::string piece = console.take(rate / 100);
        text += piece;
        last = last && piece.empty();
        poll(nullptr, 0, 10);
    }
    return text;
}

size_t lines_in(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(Console, ThatIsSlowGetsEveryLine) {
    constexpr int kBlocks = 16;
    constexpr size_t kBlockLines = 23;
    for (const Kind kind : {Kind::CookedTerminal, Kind::RawTerminal}) {
        SCOPED_TRACE(static_cast<int>(kind));
        const Console console(kind);
        Writer writer(console.writer(), [] {
            for (int i = 0; i < kBlocks; ++i) print_system_info();
        });
        EXPECT_EQ(lines_in(drain(console, writer, 11'500)), kBlocks * kBlockLines);
        EXPECT_EQ(writer.wait(), 0);
    }
}

// Ends with 0 when all of it took less than a second.
void say_much() {
    const auto start = Clock::now();
    for (int i = 0; i < 1000; ++i) diag::line("nobody reads this");
    for (int i = 0; i < 1000; ++i) diag::err("nor this\n");
    my_system_call("true");
    _exit(Clock::now() - start < milliseconds(1000) ? 0 : 1);
}

void have_children_say_much() {
    sentrel::prepare_process();
    const Writer child(STDOUT_FILENO, [] {
        const std::string block(1000, 'y');
        for (int i = 0; i < 1000; ++i) {
            [[maybe_unused]] const ssize_t out = write(STDOUT_FILENO, block.data(), block.size());
            [[maybe_unused]] const ssize_t err = write(STDERR_FILENO, block.data(), block.size());
        }
    });
    _exit(const_cast<Writer&>(child).wait());
}

TEST(Console, ThatIsStuckHoldsNobodyUpAndComesBack) {
    for (const Kind kind : {Kind::CookedTerminal, Kind::RawTerminal, Kind::Pipe, Kind::Socket}) {
        for (const auto& body : {say_much, have_children_say_much}) {
            SCOPED_TRACE(static_cast<int>(kind));
            const Console console(kind);
            console.fill();
            Writer writer(console.writer(), body);
            EXPECT_EQ(writer.wait(), 0);
            EXPECT_EQ(fcntl(console.writer(), F_GETFL) & O_NONBLOCK,
                      kind == Kind::Socket ? O_NONBLOCK * (body != say_much) : 0)
                << "a stream that others share stays as it is";
        }
    }
}

TEST(Console, ThatIsReadAgainGetsWholeLinesAgain) {
    const Console console(Kind::CookedTerminal);
    console.fill();
    Writer writer(console.writer(), [] {
        diag::line("lost");
        for (int i = 0; i < 40; ++i) {
            diag::line("tried");
            poll(nullptr, 0, 10);
        }
        diag::line("the last one");
    });
    poll(nullptr, 0, 200);
    EXPECT_TRUE(drain(console, writer, 1'000'000).ends_with("tried\r\nthe last one\r\n"));
}

TEST(Console, ThatIsGoneOrAtItsLimitEndsNobody) {
    Console gone(Kind::Pipe);
    Writer after(gone.writer(), [&gone] {
        gone.hang_up();
        poll(nullptr, 0, 50);
        errno = ENOTDIR;
        const bool dropped = diag::line("to nobody") == -1 && diag::err("to nobody\n") == -1;
        _exit(dropped && errno == ENOTDIR ? 0 : 1);
    });
    gone.hang_up();
    EXPECT_EQ(after.wait(), 0);

    const int file = memfd_create("log", MFD_CLOEXEC);
    Writer limited(file, [] {
        const rlimit limit{100, 100};
        setrlimit(RLIMIT_FSIZE, &limit);
        for (int i = 0; i < 100; ++i) diag::line("a log file has a size limit");
        sigset_t pending;
        sigpending(&pending);
        _exit(sigismember(&pending, SIGXFSZ));
    });
    EXPECT_EQ(limited.wait(), 0);
    EXPECT_EQ(lseek(file, 0, SEEK_END), 100);
    close(file);
}

// Whatever is closed at the start, no device takes the number of a stream.
TEST(Console, ThatIsClosedIsNoDevice) {
    sim::load("");
    for (unsigned closed = 0; closed < 8; ++closed) {
        SCOPED_TRACE(closed);
        const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
        Writer writer(nowhere, [closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed >> fd & 1) != 0) close(fd);
            }
            const int device = open_file("/dev/mtd/7", O_RDWR | O_CREAT, 0644);
            const int link = open_socket(AF_UNIX, SOCK_DGRAM, 0);
            diag::line("into the flash");
            diag::err("into the flash\n");
            _exit(device > 2 && link > 2 && lseek(device, 0, SEEK_END) == 0 ? 0 : 1);
        });
        EXPECT_EQ(writer.wait(), 0);
        close(nowhere);
    }
}

TEST(Console, GetsOneWholeMessageAtATime) {
    const std::string longer(2000, 'm');
    struct Case {
        std::function<void()> say;
        std::string start;
        std::string end;
    };
    const Case cases[] = {
        {[&] {
             diag::error({"src", "fn", 7}, "%s\n", longer.c_str());
         },
         "\033[0;32;31m[libmarl] ERROR (src|fn|7): mmm", "m\n\033[m"},
        {[&] {
             diag::error({"src", "fn", 7}, "%s", longer.c_str());
         },
         "\033[0;32;31m[libmarl] ERROR (src|fn|7): mmm", "m\033[m"},
        {[&] { diag::out("%s\n\033[m", longer.c_str()); }, "mmm", "m\n\033[m"},
        {[&] { diag::line(longer.c_str()); }, "mmm", "m\n"},
        {[&] { diag::err("%s", longer.c_str()); }, "mmm", "m"},
    };
    for (const Case& one : cases) {
        const Console console(Kind::Pipe);
        Writer writer(console.writer(), one.say);
        const std::string text = drain(console, writer, 1'000'000);
        SCOPED_TRACE(text);
        EXPECT_EQ(text.size(), size_t{diag::kMessageMax} - 1);
        EXPECT_TRUE(text.starts_with(one.start) && text.ends_with(one.end));
    }
}

}  // namespace
