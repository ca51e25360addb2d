// What stands for many files: partitions and USB devices.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "verbs.h"

namespace sim::script {
namespace {

constexpr const char* kUsbList = "/proc/bus/usb/devices";
constexpr const char* kUsbHost = "/sys/devices/platform/musb_hdrc/usb1";
constexpr unsigned kEraseSize = 0x10000;

// An entry of the kernel's list.
struct UsbEntry {
    int level, port;
    std::string vendor, product, maker, name, driver;
};

void list_usb(Source& source, const char* how, const UsbEntry& usb) {
    source.order(
        "put %s %s T:  Bus=01 Lev=%02d Prnt=%02d Port=%02d Cnt=01 Dev#=  2 Spd=480 MxCh= 0\\n"
        "D:  Ver= 2.00 Cls=00(>ifc ) Sub=00 Prot=00 MxPS=64 #Cfgs=  1\\nP:  Vendor=%s ProdID=%s Rev= 1.00\\n"
        "S:  Manufacturer=%s\\nS:  Product=%s\\nC:* #Ifs= 1 Cfg#= 1 Atr=e0 MxPwr=500mA\\n"
        "I:* If#= 0 Alt= 0 #EPs= 3 Cls=ff(vend.) Sub=ff Prot=ff Driver=%s\\n",
        kUsbList, how, usb.level, std::max(usb.level - 1, 0), usb.port, usb.vendor.c_str(),
        usb.product.c_str(), usb.maker.c_str(), usb.name.c_str(), usb.driver.c_str());
}

void list_root_hub(Source& source, const char* how) {
    list_usb(source, how, {0, 0, "0000", "0000", "Linux 2.6.10 musb-hcd", "root hub", "hub"});
}

bool is_place(const std::string& place) {
    return place.starts_with("1-") && place.size() < 10 && isdigit(place.back()) &&
           place.find_first_not_of("123456789.", 2) == std::string::npos;
}

}  // namespace

// A partition: erased, with what a file of the machine has for its beginning.
void make_mtd(Source& source) {
    const auto number = static_cast<unsigned>(source.number());
    const std::string name = source.word();
    const auto size = static_cast<unsigned>(source.number());
    const unsigned erase_size = source.is("erase") ? static_cast<unsigned>(source.number()) : kEraseSize;
    const std::string image = source.rest();
    source.wants(image.empty() || std::ifstream(image).good(), "a file", image);
    source.wants(number != 1 || source.known.environment == 0, "before the first env", name);
    source.order("put /proc/mtd new dev:    size   erasesize  name\\n");
    source.order("put /proc/mtd end mtd%u: %08x %08x \"%s\"\\n", number, size, erase_size, name.c_str());
    source.order("flash /dev/mtd/%u %u %s", number, size, image.c_str());
}

void make_no_usb(Source& source) {
    source.known.serial_ports = 0;
    list_root_hub(source, "all");
    source.order("remove %s", kUsbHost);
}

// In the kernel's list, with its attributes and serial ports, and announced.
void make_usb(Source& source) {
    const std::string vendor = source.word(), product = source.word(), place = source.word();
    const std::string driver = source.is("driver") ? source.word() : "usbserial_generic";
    const uint64_t ports = source.is("tty") ? source.number(0, 16, "16 at most") : 0;
    const std::string both = source.rest();
    const size_t slash = both.find('/');
    if (!source.wants(is_place(place), "a place as 1-1 or 1-1.2", place)) return;
    if (!source.wants(slash != std::string::npos, "MAKER/NAME", both)) return;
    const std::string maker = both.substr(0, slash), name = both.substr(slash + 1);
    std::string directory = kUsbHost;
    int level = 0;
    for (size_t end = 1; end != std::string::npos; ++level) {  // every hub on the way has one
        end = place.find('.', end + 1);
        directory += "/" + place.substr(0, end);
    }
    list_root_hub(source, "new");
    list_usb(source, "end", {level, place.back() - '1', vendor, product, maker, name, driver});
    const std::pair<const char*, std::string> attributes[] = {{"manufacturer", maker}, {"product", name},
                                                              {"version", "2.00"},     {"idVendor", vendor},
                                                              {"idProduct", product},  {"speed", "480"}};
    for (const auto& [attribute, value] : attributes)
        source.order("put %s/%s all %s\\n", directory.c_str(), attribute, value.c_str());
    for (uint64_t i = 0; i < ports; ++i)
        source.order("put %s/%s:1.0/ttyUSB%u/dev all 188", directory.c_str(), place.c_str(),
                     source.known.serial_ports++);
    source.order("uevent 0 add@%s\\x00ACTION=add", directory.c_str() + std::string("/sys").size());
}

}  // namespace sim::script
