#include <fcntl.h>

#include "base/diag.h"
#include "base/fd.h"
#include "libmarl/gpio.h"

namespace {

using namespace marl;

constexpr const char* kInputDevice = "/dev/misc/gio_expd_in";
constexpr const char* kOutputDevice = "/dev/misc/gio_expander";
constexpr uint32_t kHighestLine = 7;

// Opened on first use by whoever calls; no lock, each access is one system call.
struct {
    int input = -1;
    int output = -1;
} constinit g_expander;

// The access that follows a failed open fails by itself.
int open_device(int& fd, const char* path, int flags) {
    if (open_once(fd, path, flags) < 0) diag::out("open %s failed\n", path);
    return fd;
}

}  // namespace

int gio_expander_read(uint32_t num, uint8_t* out) {
    if (out == nullptr) return -1;
    if (num > kHighestLine) diag::err("invalid parameter: num=%d(rang is 0-7)\n", static_cast<int>(num));
    uint8_t levels = 0;
    const ssize_t n =
        read_some(open_device(g_expander.input, kInputDevice, O_RDONLY), &levels, sizeof levels);
    if (n < 1) return -1;  // no byte is no level
    *out = num > kHighestLine ? 0 : static_cast<uint8_t>(levels >> num & 1);
    return *out;
}

int gio_expander_write(uint32_t num, uint32_t value) {
    if (value > 1 || num > kHighestLine)
        diag::out("invalid parameter: num=%d,value=%d\n", static_cast<int>(num), static_cast<int>(value));
    const uint8_t request[] = {static_cast<uint8_t>(num), static_cast<uint8_t>(value)};
    const int fd = open_device(g_expander.output, kOutputDevice, O_WRONLY);
    return static_cast<int>(write_some(fd, request, sizeof request));
}
