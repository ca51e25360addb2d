#include "daemon/recorder_modem.h"

#include <fcntl.h>

#include <cstddef>
#include <cstdint>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "mcu/frame.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr int kFailedWritesAccepted = 5;
constexpr uint32_t kWritePauseMs = 10;

constexpr mcu::Frame kPowerOn(mcu::kModemPower, mcu::kSet, 1);

bool write_frame(int fd) {
    size_t done = 0;
    int failed = 0;
    while (done < sizeof kPowerOn.bytes) {
        const ssize_t n = write_some(fd, kPowerOn.bytes + done, sizeof kPowerOn.bytes - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (++failed == kFailedWritesAccepted) {
            return false;
        } else {
            sleep_ms(kWritePauseMs);
        }
    }
    return true;
}

}  // namespace

bool power_recorder_modem() {
    bool written = false;
    {
        const Fd device(open_file(mcu::kDevice, O_RDWR));
        diag::out("set before, fd_mcu_spi=%d\n", device.get());
        if (device.get() <= 0) {
            diag::line("NRX2 3G open failed");
            return false;
        }
        written = write_frame(device.get());
    }
    if (written) diag::line("NRX2 3G open ok");
    return written;
}

}  // namespace sentrel
