// The device: opening it, and writing to it.
#include "mcu/link.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "base/clock.h"
#include "base/fd.h"
#include "libmarl/mcu.h"
#include "mcu/common.h"
#include "mcu/frame.h"
#include "mcu/reader.h"

namespace {

using namespace marl;

// As long as an answer is waited for: a microcontroller that takes nothing for that time is gone, and a halt
// must not hang on it.
constexpr int kFailedWritesAccepted = 300;

// The descriptor is written by mcu_open under `open_lock`; once it has had a reader it stays. `write_lock`
// keeps the frames of several writers apart. `reader` is set under `open_lock`, and cleared by the reader
// at its end.
struct {
    pthread_mutex_t open_lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t write_lock = PTHREAD_MUTEX_INITIALIZER;
    int fd = -1;
    uint32_t readers_started = 0;
    std::atomic<uint32_t> reader = mcu::kNoReader;
} constinit g_link;

void* run_reader(void* descriptor) {
    mcu::thread_spi_read(descriptor);
    // A reader without a device was never anybody's, and another one may read by now.
    if (reinterpret_cast<intptr_t>(descriptor) >= 0) g_link.reader = mcu::kNoReader;
    return nullptr;
}

// Starts a thread that takes none of the program's signals, whose handlers expect the program's own threads.
// Nobody ever joins it, so it is detached. The error number, 0 for none.
int start_thread(void* (*body)(void*), void* argument) {
    pthread_attr_t detached;
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread;
    const int error = pthread_create(&thread, &detached, body, argument);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&detached);
    return error;
}

// Under `open_lock`. False after a message.
bool start_reader(int fd) {
    if (fd >= 0) {
        if (++g_link.readers_started == mcu::kNoReader) ++g_link.readers_started;
        g_link.reader = g_link.readers_started;
    }
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the thread takes a number, not an address
    void* const argument = reinterpret_cast<void*>(static_cast<intptr_t>(fd));
    const int error = start_thread(run_reader, argument);
    if (error == 0) return true;
    g_link.reader = mcu::kNoReader;
    diag::system_error("pthread_create spi read\n", error);
    return false;
}

bool write_all(int fd, const uint8_t* data, uint32_t len) {
    const MutexLock lock(g_link.write_lock);
    int failed = 0;
    for (uint32_t done = 0; done < len;) {
        const ssize_t n = write_some(fd, data + done, len - done);
        if (n > 0) {
            done += static_cast<uint32_t>(n);
            failed = 0;
        } else if (++failed == kFailedWritesAccepted) {
            return false;
        } else {
            sleep_ms(mcu::kPollMs);
        }
    }
    return true;
}

}  // namespace

uint32_t marl::mcu::current_reader() { return g_link.reader; }

int mcu_open() {
    const MutexLock lock(g_link.open_lock);
    if (g_link.fd >= 0) {
        // A reader that has ended leaves the descriptor: others may be writing to it.
        return mcu::current_reader() != mcu::kNoReader || start_reader(g_link.fd) ? g_link.fd : -1;
    }
    // Without a device the thread is started all the same and ends at once.
    const int fd = open_file(mcu::kDevice, O_RDWR);
    if (!start_reader(fd)) {
        if (fd >= 0) close(fd);
        return -1;
    }
    g_link.fd = fd;
    return fd;
}

int mcu_write(const uint8_t* buf, uint32_t len) {
    if (buf == nullptr || len == 0 || len > INT32_MAX) {
        mcu::report_assertion();
        return -1;
    }
    const int fd = mcu_open();
    if (fd < 0) {
        mcu::report_assertion();
        return -1;
    }
    return write_all(fd, buf, len) ? static_cast<int>(len) : -1;
}
