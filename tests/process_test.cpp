// What the daemon makes of its process, and the library of the children that it starts.
#include "daemon/process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "helpers/board.h"
#include "libmarl/system.h"

namespace {

using namespace board;

// As a child found it when it was about to become the shell; it shares the memory of its parent up to there.
struct AtShell {
    void (*handler)(int);
    int user_signal_held;
} g_at_shell;

void handle(int /*signal*/) {}

int g_interruptions = 0;

}  // namespace

extern "C" pid_t waitpid(pid_t child, int* status, int options) {
    errno = EINTR;
    return g_interruptions-- > 0 ? -1 : board::behind(waitpid, "waitpid")(child, status, options);
}

// In the place of the board's own: a shell that ends with status 3.
extern "C" int execve(const char* /*path*/, char* const* /*arguments*/,
                      char* const* /*environment*/) noexcept {
    struct sigaction action {};
    sigset_t held;
    sigaction(SIGUSR1, nullptr, &action);
    pthread_sigmask(SIG_BLOCK, nullptr, &held);
    g_at_shell = {action.sa_handler, sigismember(&held, SIGUSR1)};
    _exit(3);
}

namespace {

TEST(Command, RunsNoHandlerOfItsParentAndIsToldEvenWhereChildrenAreIgnored) {
    load("");
    signal(SIGUSR1, handle);
    for (const auto children : {SIG_DFL, SIG_IGN}) {
        signal(SIGCHLD, children);
        g_interruptions = 1000;
        EXPECT_EQ(my_system_call("true"), 3 << 8);
        EXPECT_EQ(g_at_shell.handler, SIG_DFL);
        EXPECT_EQ(g_at_shell.user_signal_held, 0);
        EXPECT_EQ(signal(SIGCHLD, SIG_DFL), children);
    }
    EXPECT_EQ(signal(SIGUSR1, SIG_DFL), handle);
}

// What the announcement of the child raises must not end it before it has become the shell.
TEST(Command, RunsWhenNobodyReadsThePipeOfItsAnnouncement) {
    load("");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int kept = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    const int status = my_system_call("true");
    dup2(kept, STDOUT_FILENO);
    close(kept);
    EXPECT_EQ(status, 3 << 8);
}

TEST(Daemon, OutlivesItsTerminalAndALogFileAtItsLimit) {
    const pid_t child = fork();
    if (child == 0) {
        signal(SIGCHLD, SIG_IGN);
        sentrel::prepare_process();
        raise(SIGHUP);
        raise(SIGXFSZ);
        _exit(signal(SIGCHLD, SIG_DFL) == SIG_DFL ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace
