#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "libmarl/system.h"

namespace {

using namespace marl;

// What the child says of itself: prepared by the parent up to the number that only the child knows.
struct Announcement {
    char text[64];
    size_t length;
    bool wanted;
};

Announcement prepare_announcement() {
    Announcement announcement{};
    const int n = snprintf(announcement.text, sizeof announcement.text,
                           "[libmarl] inclild ppid=%d pid=", static_cast<int>(getpid()));
    announcement.length = static_cast<size_t>(n);
    announcement.wanted = diag::takes_output(STDOUT_FILENO);
    return announcement;
}

// Runs in the child, which shares the parent's memory until it executes the shell: it writes,
// and nothing more.
void announce(Announcement& announcement, unsigned pid) {
    char digits[16];
    size_t count = 0;
    do digits[count++] = static_cast<char>('0' + pid % 10);
    while ((pid /= 10) != 0);
    while (count > 0) announcement.text[announcement.length++] = digits[--count];
    announcement.text[announcement.length++] = ' ';
    announcement.text[announcement.length++] = '\n';
    [[maybe_unused]] const ssize_t ignored = write(STDOUT_FILENO, announcement.text, announcement.length);
}

}  // namespace

int my_system_call(const char* command) {
    if (command == nullptr) return -1;
    Announcement announcement = prepare_announcement();
    const char* const arguments[] = {"sh", "-c", command, nullptr};
    // vfork, because a copy of the caller's page tables is more than a small board can always give.
    const pid_t child = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork)
    if (child < 0) {
        diag::error({module::kSystem, "my_system_call"}, "vfork() failed !\n");
        return -1;
    }
    if (child == 0) {
        // NOLINTNEXTLINE(clang-analyzer-unix.Vfork): a number and a write, which the shared memory bears
        if (announcement.wanted) announce(announcement, static_cast<unsigned>(getpid()));
        execve("/bin/sh", const_cast<char* const*>(arguments), environ);
        _exit(127);
    }
    int status = 0;
    const pid_t ended = repeat_interrupted([&] { return waitpid(child, &status, 0); });
    return ended == child ? status : -1;
}
