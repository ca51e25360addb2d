#include <fcntl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/bytes.h"
#include "base/clock.h"
#include "base/crc32.h"
#include "base/diag.h"
#include "base/fd.h"
#include "board/dm365.h"
#include "libmarl/flash.h"

namespace {

using namespace marl;

constexpr uint16_t kNoCommand = 0x1357;

constexpr uint32_t kNoAnswer = 0xffff;
constexpr uint32_t kAccepted = 0x55aa;
constexpr uint32_t kResend = 0x7788;
constexpr uint32_t kComplete = 0x99bb;

constexpr int kProbeHits = 2;
constexpr uint32_t kProbePauseMs = 40;
constexpr int kFirstProbeTries = 250;
constexpr int kProbeTriesAfterError = 50;

constexpr uint32_t kBeforeAckMs = 20;
constexpr int kAckTries = 150;
constexpr uint32_t kAckPauseMs = 40;
constexpr uint32_t kBeforeEndAckMs = 5'000;
constexpr int kEndAckTries = 180;
constexpr uint32_t kEndAckPauseMs = 500;

constexpr int kRewrites = 5;
constexpr uint32_t kRewritePauseMs = 50;
constexpr int kResends = 5;

constexpr char kEndText[] = "upgrade-end";
constexpr size_t kEndTextSize = sizeof kEndText - 1;

// A frame: four little-endian words, then the payload.
constexpr uint32_t kPayloadMax = 65536;
constexpr size_t kHeaderSize = 16;
constexpr size_t kAddressAt = 0;
constexpr size_t kLengthAt = 4;
constexpr size_t kCrcAt = 8;
constexpr size_t kKindAt = 12;
constexpr uint32_t kDataFrame = 0;
constexpr uint32_t kEndFrame = 0x1234;

// One upgrade runs at a time, on the thread that owns the raw flash object.
struct {
    int fd = -1;
    bool probed = false;       // the link is probed by the first call of the process only
    uint8_t* frame = nullptr;  // kept for the life of the process, with the checksum of the last frame
} constinit g_upgrade;

bool report_closed(int fd) {
    if (fd >= 0) return false;
    diag::err("@@: spi0 device is not open\n");
    return true;
}

bool is_link_alive(int fd, int tries) {
    uint32_t answer = kNoAnswer;
    dm365_spi_probe(fd, tries, &answer);
    if (answer != kNoAnswer) return true;
    diag::line("[libmarl]: ERROR, Probe SPI between 6441 and 365 failed, upgrade failed");
    return false;
}

bool probe_once(int fd) {
    if (g_upgrade.probed) return true;
    g_upgrade.probed = true;
    if (!is_link_alive(fd, kFirstProbeTries)) return false;
    diag::line("[DEBUG]=======>: Libmarl:  transmation alive between 6441 and 365 <=====");
    return true;
}

bool allocate_frame() {
    if (g_upgrade.frame == nullptr) {
        g_upgrade.frame = static_cast<uint8_t*>(calloc(1, kHeaderSize + kPayloadMax));
    }
    if (g_upgrade.frame == nullptr) diag::err("upgrade calloc fail\n");
    return g_upgrade.frame != nullptr;
}

// The mode keeps the monitor from resetting the co-processor; without it no frame may go out.
bool set_upgrade_mode(int fd) {
    uint32_t mode = dm365::kUpgrading;
    return control(fd, dm365::kSetMode, &mode) >= 0;
}

void build_header(uint32_t addr, uint32_t length, uint32_t kind) {
    store_le(g_upgrade.frame + kAddressAt, addr);
    store_le(g_upgrade.frame + kLengthAt, length);
    store_le(g_upgrade.frame + kKindAt, kind);
}

int send_end(int fd) {
    const auto written = static_cast<int>(write_some(fd, g_upgrade.frame, kHeaderSize));
    sleep_ms(kBeforeEndAckMs);
    uint32_t answer = kNoAnswer;
    dm365_wait_ack(fd, kEndAckTries, &answer, kEndAckPauseMs);
    if (answer == kComplete) {
        diag::line("======>: upgrade365 sucess: <========");
    } else {
        sleep_ms(kBeforeEndAckMs);
        diag::line("======>: upgrade365 timeout when upgrade last buffer: <========");
    }
    return written;
}

// A frame that the driver refuses is offered again when the link still answers. The bytes written, or -1.
int write_frame(int fd, size_t size) {
    ssize_t written = write_some(fd, g_upgrade.frame, size);
    if (written > 0) return static_cast<int>(written);
    diag::err("[libmarl]: ERROR, transmit upgrade-data failed\n");
    if (!is_link_alive(fd, kProbeTriesAfterError)) return -1;
    for (int i = 0; i < kRewrites; ++i) {
        if (i > 0) sleep_ms(kRewritePauseMs);
        written = write_some(fd, g_upgrade.frame, size);
        if (written > 0) return static_cast<int>(written);
    }
    return -1;
}

int send_data(int fd, const uint8_t* buf, uint32_t length, uint32_t addr) {
    for (int resends = 0;;) {
        build_header(addr, length, kDataFrame);
        memcpy(g_upgrade.frame + kHeaderSize, buf, length);
        store_le(g_upgrade.frame + kCrcAt, crc32({buf, length}));
        const int written = write_frame(fd, kHeaderSize + length);
        if (written < 0) return -1;
        sleep_ms(kBeforeAckMs);
        uint32_t answer = kNoAnswer;
        dm365_wait_ack(fd, kAckTries, &answer, kAckPauseMs);
        if (answer == kNoAnswer) {
            diag::err("[LIBMARL]====>:ERROR,  dm365 flash No ACK<======\n");
            return -1;
        }
        if (answer != kResend) return written - static_cast<int>(kHeaderSize);
        if (++resends == kResends) {
            diag::line("dm365flash: resend updata failed");
            return -1;
        }
        diag::out("dm365flash: resend updata time = %d\n", resends);
    }
}

bool is_end_of_upgrade(const uint8_t* buf, uint32_t len) {
    return len >= kEndTextSize && memcmp(buf, kEndText, kEndTextSize) == 0;
}

}  // namespace

int dm365_spi_open() {
    if (open_once(g_upgrade.fd, dm365::kLinkDevice, O_RDWR) < 0) {
        diag::err("open dm6446 spi fail\n");
        return -1;
    }
    return g_upgrade.fd;
}

void dm365_spi_probe(int fd, int tries, uint32_t* result) {
    if (report_closed(fd) || result == nullptr) return;
    uint32_t word = 0;
    int hits = 0;
    for (int i = 0; i < tries; ++i) {
        control(fd, dm365::kQueryAlive, &word);
        if (word == dm365::kAlive) {
            diag::line("=========>:  365 spi driver : <==========");
            *result = dm365::kAlive;
            if (++hits == kProbeHits) return;
        }
        sleep_ms(kProbePauseMs);
    }
    *result = kNoAnswer;
}

void dm365_wait_ack(int fd, int tries, uint32_t* result, uint32_t interval_ms) {
    if (report_closed(fd) || result == nullptr) return;
    for (int i = 0; i < tries; ++i) {
        uint32_t word = 0;
        control(fd, dm365::kReadAck, &word);
        if (word == kAccepted || word == kResend || word == kComplete) {
            *result = word;
            return;
        }
        sleep_ms(interval_ms);
    }
    *result = kNoAnswer;
}

int dm365_upgrade_write(int fd, const uint8_t* buf, uint32_t len, uint32_t addr, uint16_t cmd) {
    if (fd <= 0) {
        diag::err("fd not open\n");
        return -1;
    }
    if (cmd == kNoCommand) return 0;
    if (cmd != dm365::kUpgrading) {
        diag::err("CMD WRONG !\n");
        return -1;
    }
    if (buf == nullptr) return -1;
    if (!probe_once(fd) || !allocate_frame() || !set_upgrade_mode(fd)) return -1;
    const uint32_t length = std::min(len, kPayloadMax);
    if (!is_end_of_upgrade(buf, len)) return send_data(fd, buf, length, addr);
    build_header(addr, length, kEndFrame);
    return send_end(fd);
}
