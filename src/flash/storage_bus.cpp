#include "flash/storage_bus.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdint>

#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "board/cmos.h"
#include "libmarl/cmos.h"
#include "libmarl/gpio.h"
#include "libmarl/hwinfo.h"

namespace marl {
namespace {

constexpr const char* kDevice = "/dev/misc/ataen";
constexpr unsigned long kSetEnabled = 0x40044a01;
constexpr unsigned long kGetEnabled = 0x80044a02;
constexpr int kSharedBusStorage = 3;
constexpr uint32_t kBusStatusLine = 9;
constexpr int kOnBus = 1;

constexpr uint8_t kMark[] = {0x57, 0x13};

// Written by the flash operations, which belong to one thread.
struct {
    int idestatus = 0;  // the last look at the status line
    bool released = false;
} constinit g_bus;

void unmount_disk() {
    sync();
    umount("/etc/");
    umount("/mnt/");
    sync();
}

}  // namespace

bool release_storage_bus() {
    if (g_bus.released || get_dvr_info(MARL_INFO_STORE_INTERFACE) != kSharedBusStorage) return true;
    g_bus.idestatus = gpio_get_bit(kBusStatusLine);
    if (pg_gpio == nullptr) return false;  // nobody knows who has the bus
    diag::out("[libmarl] status = %d\n", g_bus.idestatus);
    if (g_bus.idestatus != kOnBus) return true;
    const Fd device(open_file(kDevice, O_RDWR));
    if (!device.is_open()) {
        diag::error({module::kFlash, "flash_write"}, "open failed %s", kDevice);
        return false;
    }
    unmount_disk();
    uint32_t enabled = 0;
    control(device.get(), kSetEnabled, &enabled);
    enabled = 10;
    control(device.get(), kGetEnabled, &enabled);
    diag::out("[libmarl] ioctl get_ataen1=%d\n", static_cast<int>(enabled));
    g_bus.released = true;
    return true;
}

bool mark_storage_bus_release(bool skip) {
    diag::out("[libmarl] idestatus =%d\n", g_bus.idestatus);
    if (g_bus.idestatus != kOnBus || skip) return true;
    const Fd device(open_file(kDevice, O_RDWR));
    if (!device.is_open()) {
        diag::error({module::kFlash, "flash_release"}, "open failed:%s", kDevice);
        return false;
    }
    if (writeCMOS(cmos::kBusReleaseMark, kMark, sizeof kMark) < 0)
        diag::err("writeCMOS offset=%d\n", cmos::kBusReleaseMark);
    return true;
}

}  // namespace marl
