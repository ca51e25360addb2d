// What the launcher and the board agree on about a run: its temporary directory and its network.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace sim::launch {

// --- The directory of a run: the board's files, and the name under which the loader finds the board. It
// stays locked for as long as the run lives, which tells a living run from what a killed one has left.

constexpr const char* kHomeVariable = "MARL_SIM_HOME";
constexpr const char* kParent = "/tmp";
constexpr const char* kStart = "marl-board.";
constexpr const char* kOrders = "orders";      // the script, as the board takes it
constexpr const char* kBootsFile = "/.boots";  // in the board's directory: how often it was switched on
constexpr int kFirstDescriptor = 900;          // out of the way: some programs count theirs

// The descriptor that holds the lock; -1 when somebody else has it, or has removed the directory meanwhile.
inline int lock(const char* path, int how) {
    struct stat locked {
    }, named{};
    const int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const bool done = fd >= 0 && flock(fd, how) == 0 && fstat(fd, &locked) == 0 && lstat(path, &named) == 0;
    if (done && locked.st_ino == named.st_ino && locked.st_uid == geteuid()) return fd;
    if (fd >= 0) close(fd);
    return -1;
}

// Makes one and locks it; false when that cannot be done.
template <size_t kSize>
bool make_home(char (&path)[kSize], bool for_successor) {
    for (int attempt = 0; attempt < 10;
         ++attempt) {  // a clearance of another run may be quicker than the lock
        snprintf(path, kSize, "%s/%sXXXXXX", kParent, kStart);
        if (mkdtemp(path) == nullptr) return false;
        const int fd = lock(path, LOCK_EX);
        if (fd < 0) continue;
        const int kept = fcntl(fd, for_successor ? F_DUPFD : F_DUPFD_CLOEXEC, kFirstDescriptor);
        close(fd);
        return kept >= 0;
    }
    return false;
}

// --- The network. The real one may be used in a namespace that was made for the run, never in the machine's.

constexpr const char* kNetworkVariable = "MARL_SIM_NETWORK";

struct NamespaceName {
    explicit NamespaceName(const char* link) { known = readlink(link, text, sizeof text - 1) > 0; }
    char text[64] = {};
    bool known;
};

// To be called when a namespace was made: those that come after trust it.
inline void remember_network() { setenv(kNetworkVariable, NamespaceName("/proc/self/ns/net").text, 1); }

inline bool has_own_network() {
    const NamespaceName own("/proc/self/ns/net"), first("/proc/1/ns/net");
    const char* made = getenv(kNetworkVariable);
    if (own.known && made != nullptr && strcmp(own.text, made) == 0) return true;
    return own.known && first.known && strcmp(own.text, first.text) != 0;
}

}  // namespace sim::launch
