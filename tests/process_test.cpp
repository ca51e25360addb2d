// What the daemon makes of its process, and the library of the children that it starts.
#include "daemon/process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "helpers/board.h"
#include "helpers/console.h"
#include "libmarl/system.h"

namespace {

using namespace board;

volatile sig_atomic_t g_children = 0;
void handle(int signal) { g_children = g_children + (signal == SIGCHLD ? 1 : 0); }

int g_interruptions = 0, g_missing_shells = 0;
pid_t g_child = 0;

}  // namespace

extern "C" pid_t waitpid(pid_t child, int* status, int options) {
    g_child = child;
    errno = EINTR;
    return g_interruptions-- > 0 ? -1 : board::behind(waitpid, "waitpid")(child, status, options);
}

// In the place of the board's own: a shell that ends with status 3 if it is given what it should be. (No
// memory tells: under an emulator the child has its own.)
extern "C" int execve(const char* /*path*/, char* const* arguments, char* const* /*environment*/) noexcept {
    sigset_t held;
    pthread_sigmask(SIG_BLOCK, nullptr, &held);
    const bool is_right = signal(SIGHUP, SIG_DFL) == SIG_DFL && signal(SIGUSR2, SIG_DFL) == SIG_IGN &&
                          sigismember(&held, SIGUSR1) == 0 && arguments[2] == std::string_view("true");
    if (g_missing_shells-- > 0) return -1;
    _exit(is_right ? 3 : 4);
}

namespace {

TEST(Command, RunsNoHandlerOfItsParentAndIsToldEvenWhereChildrenAreIgnored) {
    load("");
    signal(SIGHUP, handle);
    signal(SIGUSR2, SIG_IGN);
    for (const auto& [children, flags] : {std::pair(&handle, 0), {SIG_IGN, 0}, {SIG_DFL, SA_NOCLDWAIT}}) {
        struct sigaction action {};
        action.sa_handler = children, action.sa_flags = flags;
        sigaction(SIGCHLD, &action, nullptr);
        g_interruptions = 1000;
        EXPECT_EQ(my_system_call("true"), 3 << 8);
        EXPECT_TRUE(getenv("MARL_SIM_CLONE") != nullptr ||  // where the child has a journal of its own
                    seen("out \"[libmarl] inclild ppid=" + std::to_string(getpid()) +
                         " pid=" + std::to_string(g_child) + " \\n\""));
        sigaction(SIGCHLD, nullptr, &action);
        EXPECT_EQ(std::pair(action.sa_handler, action.sa_flags & SA_NOCLDWAIT), std::pair(children, flags));
    }
    EXPECT_EQ(signal(SIGHUP, SIG_DFL), handle);
    if (getenv("MARL_SIM_CLONE") != nullptr) return;  // and memory of its own, or is no child of vfork
    run("fault process vfork 2 EAGAIN");
    g_missing_shells = 1;
    EXPECT_EQ(Ints({g_children, my_system_call("true"), my_system_call("true")}), Ints({1, 127 << 8, -1}));
}

// What the announcement of the child raises must not end it before it has become the shell.
TEST(Command, RunsWhenNobodyReadsThePipeOfItsAnnouncement) {
    load("");
    signal(SIGHUP, SIG_DFL);  // whatever the starter of the test has made of it
    signal(SIGUSR2, SIG_IGN);
    console::Console gone(console::Kind::Pipe);
    gone.hang_up();
    const int kept = dup(STDOUT_FILENO);
    dup2(gone.writer(), STDOUT_FILENO);
    const int status = my_system_call("true");
    dup2(kept, STDOUT_FILENO);
    close(kept);
    EXPECT_EQ(status, 3 << 8);
}

TEST(Daemon, OutlivesItsTerminalAndALogFileAtItsLimit) {
    const auto prepare = [](unsigned closed) {
        const int next = dup(STDERR_FILENO);
        close(next);
        console::close_streams(closed);
        signal(SIGCHLD, SIG_IGN);
        sentrel::prepare_process();
        raise(SIGHUP);
        raise(SIGXFSZ);
        // Closed streams have something in their places, and nothing else is left open.
        _exit(signal(SIGCHLD, SIG_DFL) == SIG_DFL && dup(STDERR_FILENO) == next ? 0 : 1);
    };
    for (const unsigned closed : {0U, 7U}) EXPECT_EXIT(prepare(closed), testing::ExitedWithCode(0), "");
}

}  // namespace
