// What the files of the microcontroller link share.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "base/diag.h"

namespace marl::spi_util {

inline constexpr const char* kSource = "src/mouse/SpiUtil";

// The step of everything that waits here: for bytes, for an answer, for the next try of a write.
inline constexpr uint32_t kPollMs = 10;

class MutexLock {
  public:
    explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    pthread_mutex_t& mutex_;
};

// Reports a call that cannot be right; the process goes on.
inline void report_assertion(int line = __builtin_LINE()) {
    diag::out("--Assert(File:%s::Line:%d)--\n", kSource, line);
}

}  // namespace marl::spi_util
