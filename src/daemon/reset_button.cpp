#include "daemon/reset_button.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>

#include "base/clock.h"
#include "base/devices.h"
#include "base/diag.h"
#include "base/fd.h"
#include "board/cmos.h"
#include "daemon/dm365_link.h"

namespace sentrel {
namespace {

using namespace marl;

constexpr int32_t kHoldPolls = 25;
constexpr uint32_t kBeforeRebootMs = 200;

constexpr const char* kWipeCommands[] = {
    "rm /mnt/mtd/Config/* -rf", "rm /mnt/backup/Config/* -rf", "rm /mnt/mtd/Log -rf",
    "mkdir /mnt/mtd/Config",    "mkdir /mnt/mtd/Log",          "mkdir /mnt/backup/Config",
};

// A write to the CMOS bytes: the offset, then the data.
constexpr uint8_t kNetworkInvalidAndResetMark[] = {cmos::kNetworkMagic, 0x00, 0x00, cmos::kFactoryReset,
                                                   0x00};
constexpr uint8_t kRunMarkerCleared[] = {cmos::kRunMarker, 0x00};

// The loop's own.
struct {
    int fd = -1;
    uint8_t reset_gpio_line = 0;
    int32_t hold_countdown = kHoldPolls;
} constinit g_button;

void run_command(const char* command) { [[maybe_unused]] const int ignored = system(command); }

void wipe_and_reboot(int product_type) {
    sync();
    diag::line("sentRel: i will reboot");
    for (const char* command : kWipeCommands) run_command(command);
    clear_cmos();
    if (product_type == kCoprocessorBoard) announce_factory_reset();
    sleep_ms(kBeforeRebootMs);
    run_command("reboot");
}

}  // namespace

void choose_reset_gpio_line(int product_type) {
    switch (product_type) {
        case 11:
        case 13:
        case 14:
        case 15:
        case 33:
        case 34:
            g_button.reset_gpio_line = 30;
            break;
        case 25:
            g_button.reset_gpio_line = 31;
            break;
        case 22:
        case 24:
            g_button.reset_gpio_line = 36;
            break;
        default:
            g_button.reset_gpio_line = 23;
            break;
    }
}

int check_reset_button(int product_type) {
    if (open_once(g_button.fd, device::kGpio, O_RDWR) < 0) return -1;
    uint8_t level = 0;
    const ssize_t n = repeat_interrupted([&] {
        level =
            g_button.reset_gpio_line;  // the driver takes the line from here and puts the level in its place
        return read(g_button.fd, &level, sizeof level);
    });
    if (n != ssize_t{sizeof level}) return -1;
    if (level != 0) {
        g_button.hold_countdown = kHoldPolls;
        return 0;
    }
    if (g_button.hold_countdown > 0) --g_button.hold_countdown;
    if (g_button.hold_countdown == 0) wipe_and_reboot(product_type);
    return 0;
}

void clear_cmos() {
    {
        const Fd rtc(open_file(device::kRtc, O_RDWR));
        if (!rtc.is_open()) {
            diag::out(" can't open %s\n", device::kRtc);
            return;
        }
        write_some(rtc.get(), kNetworkInvalidAndResetMark, sizeof kNetworkInvalidAndResetMark);
        write_some(rtc.get(), kRunMarkerCleared, sizeof kRunMarkerCleared);
    }
    diag::line("clear cmos succ");
}

}  // namespace sentrel
