// The C library's own functions, behind the ones this library puts in front of them.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#define SIM_REAL_FUNCTIONS(X)                                                                                  \
    X(open) X(close) X(read) X(pread64) X(write) X(pwrite64) X(ioctl) X(lseek64) X(mmap64)                     \
    X(fopen) X(fopen64) X(fclose) X(opendir) X(rename)                                                         \
    X(stat) X(stat64) X(lstat) X(lstat64) X(fstatat) X(fstatat64) X(access) X(unlink) X(mkdir) X(rmdir)        \
    X(select) X(clock_nanosleep) X(syscall) X(clone) X(pthread_create) X(pthread_join)                         \
    X(pthread_mutex_lock) X(pthread_mutex_trylock) X(pthread_mutex_unlock)

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

}  // namespace sim
