#include "daemon/dm365_link.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/clock.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "board/dm365.h"

namespace sentrel {

constinit std::atomic<int32_t> spi0_fd{-1};

namespace {

using namespace marl;

constexpr uint32_t kRepeatPauseMs = 50;
constexpr uint32_t kResetLowMs = 20;
constexpr uint32_t kResetHighMs = 500;
constexpr uint32_t kBootWaitMs = 45'000;
constexpr uint32_t kFactoryResetCode = 0xA667;

uint32_t query_word(int fd, unsigned long request) {
    uint32_t word = 0;
    control(fd, request, &word);
    sleep_ms(kRepeatPauseMs);
    control(fd, request, &word);
    return word;
}

// 0, or the errno of the failure. (write_whole would set errno itself, which the main thread shares.)
int write_record(int fd, const dm365::VersionRecord& record) {
    const auto* bytes = reinterpret_cast<const char*>(&record);
    for (size_t done = 0; done < sizeof record;) {
        const ssize_t n = write_some(fd, bytes + done, sizeof record - done);
        if (n < 0) return errno;
        if (n == 0) return EIO;
        done += static_cast<size_t>(n);
    }
    return 0;
}

// Less than the whole record is worse than none: only where there is none does the next start ask again.
int save_version(const dm365::VersionRecord& record) {
    const int fd = open_file(dm365::kVersionPath, O_RDWR | O_CREAT | O_TRUNC, 0755);
    if (fd < 0) return errno;
    diag::out("%.32s\n%.16s\n%.16s\n", record.name, record.second_version, record.version);
    int error = write_record(fd, record);
    if (close(fd) < 0 && error == 0) error = errno;
    if (error != 0) unlink(dm365::kVersionPath);
    return error;
}

void query_version(int fd, unsigned long request) {
    dm365::VersionRecord record{};
    if (control(fd, request, &record) != 0) {
        diag::system_error("", errno);
    } else if (const int error = save_version(record); error != 0) {
        diag::system_error("creat dm365_version\n", error);
    }
}

void exchange(int fd, uint32_t* out, unsigned long request) {
    uint32_t status = 0;
    control(fd, dm365::kReadStatus, &status);
    if (status == dm365::kUpgrading) {
        *out = dm365::kUpgrading;
    } else if (request == dm365::kQueryVersion || request == dm365::kQueryVersionOld) {
        query_version(fd, request);
    } else {
        *out = query_word(fd, request == dm365::kQueryAlive ? dm365::kQueryAlive : dm365::kQuery2a);
    }
}

}  // namespace

void dm365_spi_query(int fd, uint32_t* out, unsigned long request) {
    if (fd < 0) {
        diag::line("@@: spi0 device is not open");
        return;
    }
    control(fd, dm365::kBeginExchange, 0UL);
    exchange(fd, out, request);
    control(fd, dm365::kEndExchange, 0UL);
}

int dm365_reset_pulse(uint8_t line) {
    const Fd gpio(open_file(device::kGpio, O_RDWR));
    if (!gpio.is_open()) return -1;
    const uint8_t low[] = {line, 0};
    const uint8_t high[] = {line, 1};
    write_some(gpio.get(), low, sizeof low);
    sleep_ms(kResetLowMs);
    write_some(gpio.get(), high, sizeof high);
    sleep_ms(kResetHighMs);
    return 0;
}

void hold_for_boot(int fd) {
    uint32_t booting = 1;
    control(fd, dm365::kBootWait, &booting);
    sleep_ms(kBootWaitMs);
    booting = 0;
    control(fd, dm365::kBootWait, &booting);
}

void announce_factory_reset() {
    const int fd = spi0_fd;
    if (fd <= 0) return;
    uint32_t code = kFactoryResetCode;
    control(fd, dm365::kFactoryReset, &code);
}

}  // namespace sentrel
