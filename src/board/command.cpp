#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/console.h"
#include "base/diag.h"
#include "base/lock.h"
#include "base/module.h"
#include "libmarl/system.h"

namespace {

using namespace marl;

// With SIGCHLD ignored the kernel forgets how a child ended. For as long as anybody waits for one, it is not;
// children of the caller's own that end meanwhile stay to be waited for.
class ChildrenRemembered {
  public:
    ChildrenRemembered() {
        const MutexLock lock(g_state.lock);
        if (g_state.users++ > 0) return;
        sigaction(SIGCHLD, nullptr, &g_state.before);
        const bool ignored =
            g_state.before.sa_handler == SIG_IGN || (g_state.before.sa_flags & SA_NOCLDWAIT) != 0;
        g_state.changed = ignored;
        if (ignored) signal(SIGCHLD, SIG_DFL);
    }
    ~ChildrenRemembered() {
        const MutexLock lock(g_state.lock);
        if (--g_state.users == 0 && g_state.changed) sigaction(SIGCHLD, &g_state.before, nullptr);
    }
    ChildrenRemembered(const ChildrenRemembered&) = delete;
    ChildrenRemembered& operator=(const ChildrenRemembered&) = delete;

  private:
    struct State {
        pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
        unsigned users = 0;
        bool changed = false;
        struct sigaction before {};
    };
    static constinit State g_state;
};

constinit ChildrenRemembered::State ChildrenRemembered::g_state;

// What the child says of itself: prepared by the parent up to the number that only the child knows.
struct Announcement {
    char text[64];
    size_t length;
};

Announcement prepare_announcement() {
    Announcement announcement{};
    const int n = snprintf(announcement.text, sizeof announcement.text,
                           "[libmarl] inclild ppid=%d pid=", static_cast<int>(getpid()));
    announcement.length = static_cast<size_t>(n);
    return announcement;
}

// The child shares the parent's memory, and the parent stands still, until it executes the shell. So what
// runs in it is system calls and nothing more, and its one write never waits.

void announce(Announcement& announcement, const Console& console, unsigned pid) {
    char digits[16];
    size_t count = 0;
    do digits[count++] = static_cast<char>('0' + pid % 10);
    while ((pid /= 10) != 0);
    while (count > 0) announcement.text[announcement.length++] = digits[--count];
    announcement.text[announcement.length++] = ' ';
    announcement.text[announcement.length++] = '\n';
    // What a failed write raises would end the child when its signals come through again.
    const WriteSignalsHeld signals;
    if (console.offer(announcement.text, announcement.length) < 0) signals.discard_raised();
}

// No handler of the parent may run in the child, on the parent's memory, when its signals come through again.
void drop_handlers() {
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        const bool known = sigaction(number, nullptr, &action) == 0;
        if (known && action.sa_handler != SIG_DFL && action.sa_handler != SIG_IGN) signal(number, SIG_DFL);
    }
}

// The child's pid, or -1. All signals are held back from before vfork until the child has
// dropped its handlers.
pid_t start_shell(const char* command) {
    Announcement announcement = prepare_announcement();
    const Console console(STDOUT_FILENO);
    const char* const arguments[] = {"sh", "-c", command, nullptr};
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    // vfork, because a copy of the caller's page tables is more than a small board can always give.
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child == 0) {
        // NOLINTBEGIN(clang-analyzer-unix.Vfork): a number, a write and signals, which the shared memory bears
        announce(announcement, console, static_cast<unsigned>(getpid()));
        drop_handlers();
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        // NOLINTEND(clang-analyzer-unix.Vfork)
        execve("/bin/sh", const_cast<char* const*>(arguments), environ);
        _exit(127);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return child;
}

}  // namespace

int my_system_call(const char* command) {
    if (command == nullptr) return -1;
    const ChildrenRemembered remembered;
    const pid_t child = start_shell(command);
    if (child < 0) {
        diag::error({module::kSystem, "my_system_call"}, "vfork() failed !\n");
        return -1;
    }
    int status = 0;
    pid_t ended = -1;
    // However often: no driver answers here, and the child ends some time.
    do ended = waitpid(child, &status, 0);
    while (ended < 0 && errno == EINTR);
    return ended == child ? status : -1;
}
