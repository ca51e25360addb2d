#include "board/cmos.h"

#include <fcntl.h>

#include <cstring>

#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/lock.h"
#include "base/module.h"
#include "identity/catalogue.h"
#include "libmarl/cmos.h"

namespace {

using namespace marl;

// The lock guards the two steps of an access: the offset into the buffer, then the transfer.
struct {
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
    int fd = -1;
} constinit g_cmos;

bool is_exempt() { return catalogue::is_model_of(catalogue::kCmosExempt); }

}  // namespace

bool marl::cmos::read(uint8_t offset, std::span<uint8_t> out) {
    const int taken = readCMOS(offset, out.data(), static_cast<uint32_t>(out.size()));
    return taken == static_cast<int>(out.size()) || (taken == 0 && is_exempt());
}

void marl::cmos::hold_for_good() { pthread_mutex_lock(&g_cmos.lock); }

int openCMOS(const char* path) {
    if (path == nullptr) return -1;
    if (open_once(g_cmos.fd, path, O_RDWR) < 0) {
        diag::error({module::kSystem, "openCMOS"}, " can't open %s (fd = %d)\n", path, g_cmos.fd);
        return -1;
    }
    return g_cmos.fd;
}

int writeCMOS(uint8_t offset, const uint8_t* data, uint32_t len) {
    if (data == nullptr || len == 0 || len > MARL_CMOS_WRITE_MAX) return -1;
    const MutexLock lock(g_cmos.lock);
    if (is_exempt()) return 0;
    const int fd = openCMOS(device::kRtc);
    if (fd < 0) return -1;
    uint8_t buffer[1 + MARL_CMOS_WRITE_MAX] = {offset};
    memcpy(buffer + 1, data, len);
    return static_cast<int>(write_some(fd, buffer, len + 1));
}

int readCMOS(uint8_t offset, uint8_t* out, uint32_t len) {
    if (out == nullptr || len == 0 || len > MARL_CMOS_READ_MAX) return -1;
    const MutexLock lock(g_cmos.lock);
    if (is_exempt()) {
        memset(out, 0, len);
        return 0;
    }
    const int fd = openCMOS(device::kRtc);
    if (fd < 0) return -1;
    uint8_t buffer[MARL_CMOS_READ_MAX] = {offset};
    const auto result = static_cast<int>(read_some(fd, buffer, len));
    if (result >= 0) memcpy(out, buffer, len);
    return result;
}
