// The device: opening it, and writing to it.
#include <fcntl.h>
#include <unistd.h>

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

// The descriptor is written by mcu_open under `open_lock`; once it has a reader it stays. `write_lock` keeps
// the frames of several writers apart.
struct {
    pthread_mutex_t open_lock = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_t write_lock = PTHREAD_MUTEX_INITIALIZER;
    int fd = -1;
} constinit g_link;

// Nobody ever joins it, so it is detached. The error number, 0 for none.
int start_reader(int fd) {
    pthread_attr_t detached;
    pthread_attr_init(&detached);
    pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    pthread_t reader;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the thread takes a number, not an address
    void* const argument = reinterpret_cast<void*>(static_cast<intptr_t>(fd));
    const int error = pthread_create(&reader, &detached, mcu::thread_spi_read, argument);
    pthread_attr_destroy(&detached);
    return error;
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

int mcu_open() {
    const MutexLock lock(g_link.open_lock);
    if (g_link.fd >= 0) return g_link.fd;
    // Without a device the thread is started all the same and ends at once.
    const int fd = open_file(mcu::kDevice, O_RDWR);
    if (const int error = start_reader(fd); error != 0) {
        diag::library_system_error("pthread_create spi read\n", error);
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
