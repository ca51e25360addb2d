// What USB devices and the kernel's events about them say.
#include <cerrno>
#include <set>

#include "libmarl/hwinfo.h"
#include "libmarl/modem.h"
#include "libmarl/usb_devices.h"
#include "modem/index_sheet.h"
#include "target.h"

namespace {

constexpr const char* kList = "/proc/bus/usb/devices";

void require_sound(const Usb3gModule& module, int result) {
    static constexpr Usb3gModule kNone = {};
    require(ends(module.manufacturer) && ends(module.product) && ends(module.version) && ends(module.speed));
    require(ends(module.vendor_id) && ends(module.product_id) && lookup_3g_module(&module) < 7);
    require(result >= 0 || memcmp(&module, &kNone, sizeof module) == 0);
}

void require_sound(const UsbDevice& device) {
    require(ends(device.manufacturer) && ends(device.product) && device.index >= -1);
    require(device.interface_count >= 0 && device.interface_count <= MARL_USB_INTERFACES_MAX);
    for (const auto& name : device.interfaces) require(ends(name));
}

// A path that the file system can have.
bool is_path(const std::string& line) {
    if (!line.starts_with('/') || line.ends_with('/') || line.size() > 200) return false;
    constexpr const char* kNone[] = {"//", "/./", "/../"};
    return std::none_of(kNone, kNone + 3, [&](auto each) { return (line + "/").find(each) != line.npos; });
}

// The first part of a path, ten levels from /sys on, that holds a name; empty when there is none.
std::string first_with(const std::string& name, const std::string& path) {
    size_t end = strlen("/sys");
    for (int level = 0; level < 10; ++level, end = std::min(path.find('/', end + 1), path.size()))
        if (path.substr(0, end).find(name) != path.npos) return path.substr(0, end);
    return "";
}

std::set<std::string> g_handed;

struct {
    std::vector<std::string> events;
    std::string attribute;
    size_t taken;
    bool kernel_spoke;
} g_bus;

}  // namespace

TARGET(usb_list) {
    const int capacity = input.byte() % 8;
    std::string list;
    while (input.any()) {
        const std::string line = input.line();
        if (is_path(line)) memory::put("/sys/devices/platform" + line, "");
        if (!is_path(line)) list += line + "\n";
    }
    memory::put(kList, list);
    marl::g_wireless_sheet = marl::g_serial_sheet = {};
    Usb3gModule module;
    require_sound(module, find_3g_usb_device(&module));
    for (const auto listing : {get_usb_devs, get_mult3Ginfo_FromFile}) {
        std::vector<UsbDevice> devices(static_cast<size_t>(capacity));
        int count = capacity;
        require(listing(devices.data(), &count) == 0 || count == capacity);
        require(count >= 0 && count <= capacity);
        for (const UsbDevice& device : devices) require_sound(device);
    }
}

TARGET(sysfs_names) {
    const std::string name = input.line();
    memory::put("/sys/x", "");
    while (input.any())
        if (const std::string path = "/sys/" + input.line(); is_path(path)) memory::put(path, "");
    std::set<std::string> wanted;
    for (const std::string& path : memory::paths()) wanted.insert(first_with(name, path));
    g_handed = {""};
    wanted.insert("");
    const DvrFindRequest request = {name.c_str(), "/sys", &g_handed, 0, [](const char* path, void*, int) {
                                        require(g_handed.insert(path).second);
                                        return -1;
                                    }};
    require(dvr_find_file(&request) == 0 && g_handed == wanted);
}

TARGET(uevents) {
    g_bus = {};
    g_bus.attribute = input.line();
    while (input.any()) g_bus.events.push_back(input.line());
    memory::answers.receive = [](void* data, size_t size, uint32_t& sender) -> ssize_t {
        errno = EAGAIN;
        if (g_bus.taken == g_bus.events.size()) return -1;
        std::string event = g_bus.events[g_bus.taken++];
        sender = event.starts_with('u') ? 1234 : 0;
        g_bus.kernel_spoke = g_bus.kernel_spoke || sender == 0;
        if (event.starts_with('b')) event.resize(3000, '\0');  // a big one
        memcpy(data, event.data(), std::min(size, event.size()));
        return static_cast<ssize_t>(event.size());
    };
    memory::answers.opens = [](const std::string& path) {
        if (path == kList) return;
        require(g_bus.kernel_spoke && path.starts_with("/sys/") && path.find("/../") == path.npos);
        memory::put(path, g_bus.attribute + "\n");
    };
    memcpy(HWINFO.product_model, "QZ-TRX5-KB-A", sizeof "QZ-TRX5-KB-A");
    Usb3gModule module;
    require_sound(module, wait_3g_usb_device(&module, 1));
}
