#include "libmarl/watchdog.h"

#include <fcntl.h>

#include <atomic>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/env.h"

namespace {

using namespace marl;

constexpr const char* kDevice = "/dev/misc/wdt";

// The cache is written by whichever thread asks first, always with the same value; the descriptors belong to
// the services of the same name.
struct {
    std::atomic<int32_t> appauto{-1};
    int keepalive = -1;
    int set_period = -1;
} constinit g_watchdog;

}  // namespace

int get_appauto() {
    const int32_t cached = g_watchdog.appauto.load(std::memory_order_relaxed);
    if (cached >= 0) return cached;
    char text[16] = {};
    if (get_armboot_para("appauto", text, sizeof text) < 0) return 0;
    const int32_t value = decimal(text);
    g_watchdog.appauto.store(value, std::memory_order_relaxed);
    return value;
}

int wdt_keepalive() {
    if (get_appauto() == 0) return -1;
    if (open_once(g_watchdog.keepalive, kDevice, O_RDWR) < 0) {
        diag::err("open %s failed\n", kDevice);
        return -1;
    }
    control(g_watchdog.keepalive, MARL_WDT_KEEPALIVE, 0UL);
    return 0;
}

int wdt_set_period(int32_t period_ms) {
    if (get_appauto() == 0) return -1;
    const int fd = open_once(g_watchdog.set_period, kDevice, O_RDWR);
    if (fd < 0) {
        diag::line("open wdt failed");
        return fd;
    }
    if (const int result = control(fd, MARL_WDT_SET_PERIOD, &period_ms); result < 0) {
        diag::line("ioctl wdt period failed");
        return result;
    }
    if (const int result = control(fd, MARL_WDT_RESUME, 0UL); result < 0) {
        diag::line("ioctl wdt resume failed");
        return result;
    }
    control(fd, MARL_WDT_KEEPALIVE, 0UL);
    return 0;
}
