#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/module.h"
#include "base/text.h"
#include "libmarl/usb_devices.h"
#include "modem/index_sheet.h"
#include "modem/usb_interfaces.h"
#include "modem/usb_list.h"

constinit marl::IndexSheet marl::g_wireless_sheet = {};
constinit marl::IndexSheet marl::g_serial_sheet = {};

namespace {

using namespace marl;

constexpr int kOpenAttempts = 5;
constexpr uint32_t kOpenPauseMs = 500;
constexpr const char* kRootHubVendor = "0000";
constexpr const char* kBoardWireless = "eth2";
constexpr int kNoClass = -1;
constexpr int kNoSlot = -1;

struct Driver {
    std::string_view prefix;
    int driver_class;
};

// What the two listings differ in.
struct Listing {
    const char* function;
    std::span<const Driver> drivers;
    int other_class;
    std::span<const char* const>
        names;  // of interfaces, by class: what comes before the number; null for none
    int wireless_class;
    int (*find_interfaces)(InterfaceTable& table);
    IndexSheet& sheet;
    const char* slot_name;
    const char* slot_failed;
};

constexpr Driver kDrivers[] = {{"usbserial_generic", MARL_USB_SERIAL},
                               {"rt2070", MARL_USB_WIRELESS},
                               {"rt73", MARL_USB_WIRELESS},
                               {"rt2870", MARL_USB_WIRELESS},
                               {"rtusbSTA", MARL_USB_WIRELESS}};
constexpr Driver kModemDrivers[] = {{"usbs", MARL_USB_MODEM}};

// The second listing looks for serial interfaces alone, so whatever it finds is one.
constexpr const char* kNames[] = {"ttyUSB", "wlan", nullptr};
constexpr const char* kModemNames[] = {"ttyUSB", "ttyUSB"};

constexpr Listing kAllDevices = {"get_usb_devs",
                                 kDrivers,
                                 MARL_USB_OTHER,
                                 kNames,
                                 MARL_USB_WIRELESS,
                                 find_all_interfaces,
                                 g_wireless_sheet,
                                 "pusb",
                                 "usb_save_index_sheet failed"};
constexpr Listing kModems = {"get_mult3Ginfo_FromFile",
                             kModemDrivers,
                             MARL_USB_NO_MODEM,
                             kModemNames,
                             kNoClass,
                             find_serial_interfaces,
                             g_serial_sheet,
                             "ptty",
                             "save_index_sheet failed"};

int fail(const Listing& listing, const char* text, int line = __builtin_LINE()) {
    diag::error({module::kModem, listing.function, line}, "%s", text);
    return -1;
}

int fail_list(const Listing& listing, int line = __builtin_LINE()) {
    diag::error({module::kModem, listing.function, line}, "Fail to open usb USB_DEVICE_NAME:%s!",
                kUsbDeviceList);
    return -1;
}

int classify(const Listing& listing, std::string_view driver) {
    for (const Driver& known : listing.drivers) {
        if (driver.starts_with(known.prefix)) return known.driver_class;
    }
    return listing.other_class;
}

// The hexadecimal number behind a key: 0 without one, and for one of more than 32 bits.
uint32_t hexadecimal_after(std::string_view line, std::string_view key) {
    uint64_t value = 0;
    for (const char digit : text_after(line, key).value_or("")) {
        if (isxdigit(static_cast<unsigned char>(digit)) == 0) break;
        value = value << 4 | static_cast<uint64_t>(digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10);
        if (value > UINT32_MAX) return 0;
    }
    return static_cast<uint32_t>(value);
}

bool take_name(std::string_view line, std::string_view key, char (&name)[32]) {
    const auto text = text_after(line, key);
    if (text) copy_text(name, sizeof name, *text);
    return text.has_value();
}

// Makes device records of the list, a line at a time.
class DeviceReader {
  public:
    DeviceReader(const Listing& listing, std::span<UsbDevice> devices)
        : listing_(listing), devices_(devices), device_(blank()) {}

    // The number of devices, or -1.
    int read(int fd) {
        UsbLines lines(fd);
        while (outcome_ == Outcome::Going && lines.next()) take(lines.text());
        if (lines.failed()) return fail_list(listing_);
        if (outcome_ == Outcome::Going) finish();
        return outcome_ == Outcome::Failed ? -1 : static_cast<int>(count_);
    }

  private:
    // The line that has to come next; a device is listed by the time its driver is looked for.
    enum class Expected { Device, Manufacturer, Product, Driver };
    enum class Outcome { Going, Full, Failed };

    UsbDevice blank() const {
        UsbDevice device = {};
        device.driver_class = listing_.other_class;
        device.index = kNoSlot;
        return device;
    }

    void take(std::string_view line) {
        if (take_expected(line)) return;
        // Every device starts with its place, so whatever was still missing of the one before stays so.
        if (line.starts_with("T:")) {
            take_place(line);
        } else if (line.starts_with("P:") && expected_ == Expected::Device) {
            take_ids(line);
        }
    }

    bool take_expected(std::string_view line) {
        if (expected_ == Expected::Manufacturer) {
            const bool given = take_name(line, "Manufacturer=", device_.manufacturer);
            expected_ = given ? Expected::Product : Expected::Device;
            return given;
        }
        if (expected_ == Expected::Product) {
            const bool given = take_name(line, "Product=", device_.product);
            expected_ = given ? Expected::Driver : Expected::Device;
            if (given) devices_[count_++] = device_;
            return given;
        }
        const auto driver = expected_ == Expected::Driver ? text_after(line, "Driver=") : std::nullopt;
        if (!driver) return false;
        devices_[count_ - 1].driver_class = classify(listing_, *driver);
        expected_ = Expected::Device;
        return true;
    }

    void take_place(std::string_view line) {
        expected_ = Expected::Device;
        const auto bus = number_after(line, "Bus=");
        const auto level = number_after(line, "Lev=");
        const auto parent = number_after(line, "Prnt=");
        const auto port = number_after(line, "Port=");
        device_ = blank();
        if (!bus || !level || !parent || !port) {
            stop("str_search_toi failed");
            return;
        }
        device_.bus = *bus;
        device_.level = *level;
        device_.parent = *parent;
        device_.port = *port;
    }

    void take_ids(std::string_view line) {
        if (first_word(text_after(line, "Vendor=").value_or(kRootHubVendor)) == kRootHubVendor) return;
        if (count_ == devices_.size()) {
            outcome_ = Outcome::Full;
            return;
        }
        device_.vendor_id = hexadecimal_after(line, "Vendor=");
        device_.product_id = hexadecimal_after(line, "ProdID=");
        expected_ = Expected::Manufacturer;
    }

    void finish() {
        if (expected_ == Expected::Manufacturer) stop("fgets Manufacturer failed");
        if (expected_ == Expected::Product) stop("fgets Product failed");
    }

    void stop(const char* failure, int line = __builtin_LINE()) {
        fail(listing_, failure, line);
        outcome_ = Outcome::Failed;
    }

    const Listing& listing_;
    std::span<UsbDevice> devices_;
    size_t count_ = 0;
    Expected expected_ = Expected::Device;
    Outcome outcome_ = Outcome::Going;
    UsbDevice device_;  // the one that is being read
};

int open_list() {
    int fd = open_file(kUsbDeviceList, O_RDONLY);
    for (int attempt = 1; fd < 0 && attempt < kOpenAttempts; ++attempt) {
        sleep_ms(kOpenPauseMs);
        fd = open_file(kUsbDeviceList, O_RDONLY);
    }
    return fd;
}

int read_devices(const Listing& listing, std::span<UsbDevice> devices) {
    const Fd list(open_list());
    if (!list.is_open()) return fail_list(listing);
    return DeviceReader(listing, devices).read(list.get());
}

bool has_place(const UsbDevice& device, const InterfaceEntry& entry) {
    return device.bus == entry.bus && device.port + 1 == entry.port && device.level == entry.level;
}

// The listed device at a place. A path tells bus and port, and only roughly how deep: where no device is as
// deep as the path says, it is the first of that bus and port, but for one that has a place of its own.
UsbDevice* device_at(std::span<UsbDevice> devices, const InterfaceTable& table, const InterfaceEntry& place) {
    const auto exact = std::find_if(devices.begin(), devices.end(),
                                    [&](const UsbDevice& device) { return has_place(device, place); });
    if (exact != devices.end()) return &*exact;
    const auto near = std::find_if(devices.begin(), devices.end(), [&](const UsbDevice& device) {
        return device.bus == place.bus && device.port + 1 == place.port &&
               std::none_of(table.used().begin(), table.used().end(),
                            [&](const InterfaceEntry& entry) { return has_place(device, entry); });
    });
    return near != devices.end() ? &*near : nullptr;
}

void set_name(UsbDevice& device, int number_of_name, const char* name) {
    copy_text(device.interfaces[number_of_name], MARL_USB_INTERFACE_SIZE, name);
    device.interface_count = number_of_name + 1;
}

// The entry's numbers become names of the kind that the device's driver makes.
void name_interfaces(const Listing& listing, const InterfaceEntry& entry, UsbDevice& device) {
    const char* kind = listing.names[static_cast<size_t>(device.driver_class)];
    if (kind == nullptr) return;
    int count = 0;
    for (const int number : entry.numbers) {
        if (number < 0) break;
        char name[MARL_USB_INTERFACE_SIZE];
        snprintf(name, sizeof name, "%s%d", kind, number);
        set_name(device, count++, name);
    }
}

bool save_slot(const Listing& listing, const UsbDevice& device) {
    const int port = device.port + 1;
    if (static_cast<size_t>(device.index) >= listing.sheet.size()) {
        diag::out("[libmarl] %s->index=%d bus=%d port=%d\n", listing.slot_name, device.index, device.bus,
                  port);
        fail(listing, listing.slot_failed);
        return false;
    }
    listing.sheet[static_cast<size_t>(device.index)] = {device.bus, port,
                                                        device.bus == 1 && port == 1 ? 0 : 1};
    return true;
}

void assign_interfaces(const Listing& listing, std::span<UsbDevice> devices, const InterfaceTable& table) {
    int slot = 0;
    for (const InterfaceEntry& entry : table.used()) {
        UsbDevice* device = device_at(devices, table, entry);
        if (device == nullptr || device->index != kNoSlot) continue;
        device->index = slot++;
        name_interfaces(listing, entry, *device);
        if (!save_slot(listing, *device)) return;
    }
}

int add_interfaces(const Listing& listing, std::span<UsbDevice> devices) {
    for (UsbDevice& device : devices) {
        if (device.driver_class == listing.wireless_class) set_name(device, 0, kBoardWireless);
    }
    InterfaceTable table;
    if (!table.has_memory()) {
        diag::library_system_error("malloc", errno);
        return -1;
    }
    if (listing.find_interfaces(table) < 0) return -1;
    assign_interfaces(listing, devices, table);
    return 0;
}

int list_into(const Listing& listing, std::span<UsbDevice> room) {
    const int found = read_devices(listing, room);
    if (found <= 0) return found;
    return add_interfaces(listing, room.first(static_cast<size_t>(found))) < 0 ? -1 : found;
}

int list_devices(const Listing& listing, UsbDevice* devices, int* count, int line = __builtin_LINE()) {
    if (devices == nullptr || count == nullptr || *count < 0) return fail(listing, "arguments  error", line);
    const std::span<UsbDevice> room(devices, static_cast<size_t>(*count));
    std::fill(room.begin(), room.end(), UsbDevice{});
    const int found = list_into(listing, room);
    if (found < 0) {
        std::fill(room.begin(), room.end(), UsbDevice{});
        return -1;
    }
    *count = found;
    return 0;
}

}  // namespace

int get_usb_devs(UsbDevice* devices, int* count) {
    const int result = list_devices(kAllDevices, devices, count);
    if (result == 0 && *count == 0) g_wireless_sheet = {};
    return result;
}

int get_mult3Ginfo_FromFile(UsbDevice* devices, int* count) { return list_devices(kModems, devices, count); }
