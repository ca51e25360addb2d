// The C library's own functions, behind the ones this library puts in front of them.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "launch/run.h"

// clang-format off
#define SIM_REAL_FUNCTIONS(X) \
    X(open) X(close) X(read) X(pread) X(write) X(pwrite) X(ioctl) X(lseek) X(mmap64) X(ftruncate) \
    X(stat) X(access) X(unlink) X(rename) X(mkdir) X(socket) X(sendto) X(setsockopt) X(select) \
    X(clock_nanosleep) X(syscall) X(clone) X(execve) X(pthread_create) X(pthread_mutex_lock) \
    X(pthread_mutex_trylock) X(pthread_mutex_unlock) X(bind) X(opendir) X(lstat) X(unshare) X(kill) X(rmdir) \
    X(truncate) X(fcntl) X(dup2) X(dup3) X(fsync) X(recvfrom) X(vfork) X(malloc) X(calloc) X(realloc)
// clang-format on

namespace sim {

struct Real {
#define SIM_MEMBER(name) decltype(&::name) name;
    SIM_REAL_FUNCTIONS(SIM_MEMBER)
#undef SIM_MEMBER
};

extern Real real;
void find_real_functions();

// The result of a C library call in the kernel's manner: -errno on failure.
inline int64_t or_errno(int64_t result) { return result < 0 ? -errno : result; }

// A descriptor of the board's own, out of the way of the program's.
inline int put_away(int fd) {
    const int kept = fd < 0 ? fd : real.fcntl(fd, F_DUPFD_CLOEXEC, launch::kFirstDescriptor);
    real.close(fd);
    return kept;
}

}  // namespace sim
