// The 3G modem.
#include <libmarl.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

constexpr const char* kClasses[] = {"serial", "wireless", "other"};
constexpr int kMostDevices = 16;

void show_id(const char* name, uint32_t id) {
    char text[12];
    snprintf(text, sizeof text, "%04x", id);
    results::field(name, text);
}

void show_device(const UsbDevice& device) {
    const auto kind = static_cast<size_t>(device.driver_class);
    results::begin();
    results::field("manufacturer", device.manufacturer);
    results::field("product", device.product);
    show_id("vendor_id", device.vendor_id);
    show_id("product_id", device.product_id);
    results::field("class", kind < std::size(kClasses) ? kClasses[kind] : nullptr);
    results::field("bus", device.bus);
    results::field("port", device.port);
    results::begin_list("interfaces");
    for (int i = 0; i < device.interface_count && i < MARL_USB_INTERFACES_MAX; ++i) {
        results::field(nullptr, device.interfaces[i]);
    }
    results::end_list();
    results::end();
}

void show_modem() {
    Usb3gModule modem{};
    const bool is_there = find_and_identify_3g(&modem) == 0;
    results::flag("has_modem", is_there);
    if (!is_there) return;
    results::begin("modem");
    results::field("manufacturer", modem.manufacturer);
    results::field("product", modem.product);
    results::field("vendor_id", modem.vendor_id);
    results::field("product_id", modem.product_id);
    results::field("usb", modem.version);
    results::field("mbit_s", modem.speed);
    results::flag("is_known", lookup_3g_module(&modem) >= 0);
    results::end();
}

// Some models switch and reset by what modem they have, so it is looked for before.
void identify_modem() {
    Usb3gModule modem{};
    find_and_identify_3g(&modem);
}

}  // namespace

Exit modem_list(const Request&) {
    UsbDevice devices[kMostDevices] = {};
    int count = kMostDevices;
    if (get_usb_devs(devices, &count) != 0) return failed("the USB devices cannot be listed");
    show_modem();
    results::begin_list("devices");
    for (int i = 0; i < count; ++i) show_device(devices[i]);
    results::end_list();
    return kDone;
}

Exit modem_power(const Request& request) {
    const bool on = strcmp(request.word(0), "on") == 0;
    identify_modem();
    if ((on ? power_3g_on() : power_3g_off()) < 0) return failed("the modem's power cannot be switched");
    const results::JsonOnly rest;
    results::flag("power", on);
    return kDone;
}

Exit modem_reset(const Request& request) {
    identify_modem();
    const bool waits = request.has("--wait");
    if ((waits ? reset_3g_and_wait() : reset_3g()) != 0) return failed("the modem has not come back");
    const results::JsonOnly rest;
    results::flag("is_back", waits);
    return kDone;
}

}  // namespace tool
