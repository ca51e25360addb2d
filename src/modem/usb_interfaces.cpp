#include "modem/usb_interfaces.h"

#include <algorithm>
#include <cstdlib>

#include "base/diag.h"
#include "base/module.h"
#include "base/text.h"
#include "modem/sysfs_walk.h"
#include "modem/usb_list.h"

namespace marl {
namespace {

constexpr const char* kDevices = "/sys/devices/platform";
constexpr const char* kWirelessName = "wlan";
constexpr const char* kSerialName = "ttyUSB";

constexpr int16_t kNone = -1;
constexpr InterfaceEntry kEmpty = {
    kNone, kNone, kNone, {kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone}};

// Where "/usb1/1-2/1-2.3/" has the port of a device: on the root hub, or, where there is a dot, behind
// another hub.
constexpr size_t kBusAt = 4;
constexpr size_t kRootPortAt = 8;
constexpr size_t kDotAt = 13;
constexpr size_t kHubPortAt = 14;

// The number at a position of a text; kNone when there is none that an entry can hold.
int16_t number_at(std::string_view text, size_t position) {
    const int number = leading_number(rest_of(text, position)).value_or(kNone);
    return number >= 0 && number <= INT16_MAX ? static_cast<int16_t>(number) : kNone;
}

// The path from the part on that names a bus; empty when there is none. Controllers may be called "usb" too.
std::string_view from_bus(std::string_view path) {
    constexpr std::string_view kBusPart = "/usb";
    for (size_t at = path.find(kBusPart); at != std::string_view::npos; at = path.find(kBusPart, at + 1)) {
        const std::string_view rest = rest_of(path, at);
        if (number_at(rest, kBusAt) != kNone) return rest;
    }
    return {};
}

int16_t number_behind(std::string_view path, std::string_view name) {
    const size_t found = path.find(name);
    return found != std::string_view::npos ? number_at(path, found + name.size()) : kNone;
}

int fail(const char* text, const char* path, int line = __builtin_LINE()) {
    diag::error({module::kModem, "resolve_interface", line}, "%s:%s", text, path);
    return -1;
}

// The callback of the searches: takes the path of a file named `name` and a number into the table.
int resolve_interface(InterfaceTable& table, const char* path, std::string_view name) {
    const std::string_view rest = from_bus(path);
    InterfaceEntry place = kEmpty;
    if (rest.empty()) return fail("sscanf ppp->bus failed", path);
    place.bus = number_at(rest, kBusAt);
    const bool behind_hub = rest_of(rest, kDotAt).starts_with('.');
    place.level = behind_hub ? 2 : 1;
    place.port = number_at(rest, behind_hub ? kHubPortAt : kRootPortAt);
    if (place.port == kNone) return fail("sscanf ppp->lev failed", path);
    constexpr const char* kNumberFailed = "ttyid num more than eight or sscanf ppp->tty_id failed";
    const int16_t number = number_behind(path, name);
    if (number == kNone) return fail(kNumberFailed, path);
    InterfaceEntry* entry = table.entry_of(place);
    if (entry == nullptr) {
        diag::error({module::kModem, "resolve_interface"}, "there overstep the boundary ");
        return -1;
    }
    // A driver has more than one file of the same name and number.
    auto* slot = std::find_if(entry->numbers.begin(), entry->numbers.end(),
                              [&](int16_t taken) { return taken == number || taken == kNone; });
    if (slot == entry->numbers.end()) return fail(kNumberFailed, path);
    *slot = number;
    return 0;
}

int take_wireless(const char* path, void* table, int /*size*/) {
    return resolve_interface(*static_cast<InterfaceTable*>(table), path, kWirelessName);
}

int take_serial(const char* path, void* table, int /*size*/) {
    return resolve_interface(*static_cast<InterfaceTable*>(table), path, kSerialName);
}

DvrFindRequest request_for(InterfaceTable& table, const char* name,
                           int (*take)(const char* path, void* table, int size)) {
    return {name, kDevices, &table, 0, take};
}

}  // namespace

InterfaceTable::InterfaceTable() {
    auto* entries = static_cast<InterfaceEntry*>(calloc(kPlaces, sizeof(InterfaceEntry)));
    if (entries == nullptr) return;
    entries_ = {entries, kPlaces};
    std::fill(entries_.begin(), entries_.end(), kEmpty);
}

InterfaceTable::~InterfaceTable() { free(entries_.data()); }

InterfaceEntry* InterfaceTable::entry_of(const InterfaceEntry& place) {
    for (InterfaceEntry& entry : entries_) {
        if (entry.bus == kNone) entry = place;
        if (entry.bus == place.bus && entry.port == place.port && entry.level == place.level) return &entry;
    }
    return nullptr;
}

std::span<const InterfaceEntry> InterfaceTable::used() const {
    const auto end =
        std::find_if(entries_.begin(), entries_.end(), [](const auto& entry) { return entry.bus == kNone; });
    return {entries_.data(), static_cast<size_t>(end - entries_.begin())};
}

int find_all_interfaces(InterfaceTable& table) {
    for (const auto& request :
         {request_for(table, kWirelessName, take_wireless), request_for(table, kSerialName, take_serial)}) {
        if (dvr_find_file(&request) < 0) {
            diag::error({module::kModem, "get_usb_devs"}, "dvr_find_file failed");
            return -1;
        }
    }
    return 0;
}

int find_serial_interfaces(InterfaceTable& table) {
    if (find_serial_files(request_for(table, kSerialName, take_serial)) == 0) return 0;
    diag::error({module::kModem, "get_mult3Ginfo_FromFile"}, "find_File failed");
    return -1;
}

}  // namespace marl
