// The listings of USB devices with their interfaces, and the search through /sys on which they rest.
#include <dirent.h>
#include <libmarl/usb_devices.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "helpers/board.h"
#include "helpers/usb_list.h"
#include "modem/index_sheet.h"

// How many entries of directories can be read before one cannot.
static int g_readable = -1;

extern "C" dirent64* readdir64(DIR* directory) {
    if (g_readable == 0) errno = EIO;
    return g_readable == 0 ? nullptr : (--g_readable, board::behind(readdir64, "readdir64")(directory));
}

namespace {

using namespace board;
using usb_list::block;
using usb_list::kRootHub;

constexpr const char* kHost = "/sys/devices/platform/musb_hdrc/usb1/";

void put_interface(const std::string& place) { write_file(kHost + place + "/dev", "188:0\n"); }

void put_on_port(int port) {
    const std::string place = "1-" + std::to_string(port);
    put_interface(place + "/" + place + ":1.0/ttyUSB" + std::to_string(port));
}

std::string names_of(const UsbDevice& device) {
    std::string names;
    for (int i = 0; i < device.interface_count; ++i) names += std::string(device.interfaces[i]) + " ";
    return names;
}

struct Listed {
    int result;
    std::vector<UsbDevice> devices;
};

Listed list(int (*listing)(UsbDevice*, int*), int capacity = 40) {
    Listed listed{0, std::vector<UsbDevice>(static_cast<size_t>(capacity))};
    int count = capacity;
    listed.result = listing(listed.devices.data(), &count);
    if (listed.result == 0) listed.devices.resize(static_cast<size_t>(count));
    return listed;
}

// Driver class, slot and names of each.
std::string summary(int (*listing)(UsbDevice*, int*), int capacity = 40) {
    std::string text;
    for (const UsbDevice& each : list(listing, capacity).devices)
        text += std::to_string(each.driver_class) + " " + std::to_string(each.index) + " " + names_of(each) +
                ", ";
    return text;
}

// Puts these devices behind the root hub.
void put_devices(const std::string& blocks) { usb_list::put(block(kRootHub) + blocks); }

bool reported(const std::string& text) { return seen("): " + text + "\\e[m"); }

// Devices that are not listed have interfaces too, on places before and behind those of one that is.
TEST(UsbListing, NamesEveryDeviceThatIsListed) {
    std::string nameless;
    for (const int port : {0, 1, 2, 4, 5, 6}) nameless += block({.port = port, .manufacturer = nullptr});
    put_devices(nameless + block({.port = 3}) + "I:* Driver=option\n");
    for (int port = 1; port <= 7; ++port) put_on_port(port);
    EXPECT_EQ(summary(get_usb_devs, 1), "0 0 ttyUSB4 , ");
    EXPECT_EQ(summary(get_mult3Ginfo_FromFile, 1), "1 0 ttyUSB4 , ");
    // The serial listing finds serial interfaces alone, whatever made them.
    put_devices(block({.driver = "option"}));
    EXPECT_EQ(summary(get_mult3Ginfo_FromFile, 1), "0 0 ttyUSB1 , ");
    const auto& slot = marl::g_serial_sheet[0];
    EXPECT_EQ(Ints({slot.bus, slot.port, slot.changed}), Ints({1, 1, 0})) << "has been elsewhere";
    EXPECT_EQ(summary(get_usb_devs, 1), "2 0 , ");
    // What is behind a hub is not taken for what is in front of it at a port of the same number, however deep.
    load("");
    put_devices(block({.level = 2, .port = 0}) + block({.level = 3, .port = 1}));
    put_interface("1-1/1-1:1.0/ttyUSB7");
    put_interface("1-1/1-1.1/1-1.1:1.0/ttyUSB8");
    put_interface("1-1/1-1.2/1-1.2.2/1-1.2.2:1.0/ttyUSB9");
    const auto devices = list(get_usb_devs, 2).devices;
    EXPECT_EQ(names_of(devices[0]) + names_of(devices[1]), "ttyUSB8 ttyUSB9 ");
}

TEST(UsbListing, GivesDevicesTheirInterfaces) {
    put_devices(block({.vendor = "100000000", .product_id = "ffffffff", .driver = "hub"}) +
                block({.level = 2}) + block({.level = 2, .port = 1, .driver = "rt2870"}) +
                block({.level = 2, .port = 2, .driver = "rt73usb"}) +
                block({.level = 2, .port = 3, .manufacturer = nullptr}));
    for (const char* tty : {"ttyUSB0", "ttyUSB1", "ttyUSB32767"})
        put_interface(std::string("1-1/1-1.1/1-1.1:1.0/") + tty);
    put_interface("1-1/1-1.1/1-1.1:1.1/ttyUSB32767");  // the same number a second time
    put_interface("1-1/1-1.2/1-1.2:1.0/wlan7");
    const Listed all = list(get_usb_devs);
    ASSERT_EQ(all.result, 0);
    ASSERT_EQ(all.devices.size(), 4U) << "neither the root hub nor the device without names";
    const UsbDevice &hub = all.devices[0], &modem = all.devices[1];
    EXPECT_EQ(Strings({modem.manufacturer, modem.product}), Strings({"ZTE, Incorporated", "HSPA modem"}));
    EXPECT_EQ(modem.vendor_id << 16 | modem.product_id, 0x19d2fff1U);
    EXPECT_TRUE(hub.vendor_id == 0 && hub.product_id == UINT32_MAX) << "32 bits at most";
    EXPECT_EQ(modem.bus * 1000 + modem.level * 100 + modem.parent * 10 + modem.port, 1220);
    const std::string names = names_of(modem);  // in the order of the directory
    for (const char* name : {"ttyUSB0 ", "ttyUSB1 ", "ttyUSB32767 "}) EXPECT_NE(names.find(name), names.npos);
    EXPECT_EQ(modem.interface_count, 3) << names;
    EXPECT_EQ(summary(get_usb_devs), "2 -1 , 0 1 " + names + ", 1 0 wlan7 , 1 -1 eth2 , ");
    const auto& sheet = marl::g_wireless_sheet;
    EXPECT_EQ(Ints({sheet[0].bus, sheet[0].port, sheet[0].changed}), Ints({1, 2, 1}));
    EXPECT_EQ(Ints({sheet[1].bus, sheet[1].port, sheet[1].changed}), Ints({1, 1, 0}));
    // Wireless interfaces are no business of modems.
    EXPECT_EQ(summary(get_mult3Ginfo_FromFile), "0 -1 , 1 0 " + names + ", 0 -1 , 0 -1 , ");
    EXPECT_EQ(marl::g_serial_sheet[0].changed, 0);
    EXPECT_FALSE(seen("ERROR"));

    usb_list::put(block(kRootHub));
    EXPECT_EQ(summary(get_mult3Ginfo_FromFile) + summary(get_usb_devs), "");
    EXPECT_EQ(marl::g_wireless_sheet[0].bus, -1) << "a board without devices starts over";
    EXPECT_EQ(marl::g_serial_sheet[0].bus, 1);
}

TEST(UsbListing, ThirtyDevicesAndMore) {
    const std::string longest(200, 'm');
    std::string blocks;
    for (int port = 0; port < 30; ++port) blocks += block({.port = port, .manufacturer = longest.c_str()});
    put_devices(blocks);
    EXPECT_EQ(list(get_usb_devs, 30).devices.size(), 30U);
    EXPECT_EQ(list(get_usb_devs, 7).devices.size(), 7U);
    // A device more than there are slots, and interfaces more than a device keeps.

    for (int port = 1; port <= 7; ++port) put_on_port(port);
    sim::clear_journal();
    EXPECT_EQ(list(get_mult3Ginfo_FromFile, 30).result, 0);
    EXPECT_EQ(counts({"out \"[libmarl] ptty->index=5 bus=1 port=", "out \"[libmarl] pt"}), Ints({1, 1}));
    EXPECT_TRUE(reported("save_index_sheet failed"));
    EXPECT_EQ(list(get_usb_devs, 30).result, 0);
    EXPECT_TRUE(reported("usb_save_index_sheet failed"));
    // More places than a bus has.
    for (int port = 8; port <= 128; ++port) put_on_port(port);
    EXPECT_EQ(list(get_usb_devs, 5).devices.size(), 5U);
    EXPECT_TRUE(reported("there overstep the boundary ") && reported("resolve_subusb_info failed"));

    load("");
    put_devices(block({}));
    for (int number = 0; number < 10; ++number) put_interface("1-1/1-1:1.0/ttyUSB" + std::to_string(number));
    EXPECT_EQ(list(get_mult3Ginfo_FromFile).devices[0].interface_count, MARL_USB_INTERFACES_MAX);
    EXPECT_TRUE(reported("resolve_ttyusbinfo failed"));
}

TEST(UsbListing, PathsThatNameNoInterface) {
    put_devices(block({}));
    constexpr const char* kNumber = "ttyid num more than eight or sscanf ppp->tty_id failed:";
    const std::pair<const char*, const char*> files[] = {
        {"sscanf ppp->bus failed:", "ttyUSB0"},
        {"sscanf ppp->bus failed:", "usb-host/ttyUSB0"},
        {"sscanf ppp->lev failed:", "a/usb1/ttyUSB0"},
        {kNumber, "b/usb1/1-1/ttyUSB_name"},
        {kNumber, "c/usb1/1-1/ttyUSB99999"},
        {"sscanf ppp->lev failed:", "d/usb1/1-1/1-1./ttyUSB2"}};
    const std::string platform = "/sys/devices/platform/";
    for (const auto& file : files) write_file(platform + file.second, "");
    EXPECT_EQ(summary(get_usb_devs), "0 -1 , ");
    for (const auto& file : files) EXPECT_TRUE(reported(file.first + platform + file.second)) << file.second;
}

TEST(UsbListing, AListCutAnywhereIsReportedOrWhole) {
    const std::string first = block(kRootHub) + block({}), whole = first + block({.port = 1});
    for (size_t size = first.size(); size <= whole.size(); ++size) {
        usb_list::put(std::string_view(whole).substr(0, size));
        const auto starts = [&](const char* text) { return size > whole.find(text, first.size()); };
        const auto reached = [&](const char* key) {
            return size >= whole.find(key, first.size()) + strlen(key);
        };
        const bool ends_in_place = reached("T:") && !reached("Port=0");
        const bool lacks_line =
            (reached("Vendor=") && !starts("S:  Manu")) || (reached("Manufacturer=") && !starts("S:  Prod"));
        sim::clear_journal();
        const Listed listed = list(get_mult3Ginfo_FromFile);
        ASSERT_EQ(listed.result, ends_in_place || lacks_line ? -1 : 0) << size;
        ASSERT_EQ(reported("str_search_toi failed"), ends_in_place) << size;
        if (listed.result < 0) continue;
        ASSERT_EQ(listed.devices.size(), reached("Product=") ? 2U : 1U) << size;
        ASSERT_EQ(listed.devices.back().driver_class, reached("Driver=usbs") || !reached("Product=")) << size;
    }
    load("");
    const std::string nameless = "T:  Bus=01 Lev=01 Prnt=01 Port=00\nP:  Vendor=19d2 ProdID=fff1\n";
    for (const auto& [list_end, message] : {std::pair("", "fgets Manufacturer failed"),
                                            {"S:  Manufacturer=A\n", "fgets Product failed"},
                                            {"T:  Bus=01 Prnt=01 Port=00\n", "str_search_toi failed"}}) {
        usb_list::put(nameless + list_end);
        EXPECT_TRUE(list(get_usb_devs).result == -1 && reported(message)) << message;
    }
    const auto error = scenario::Journal(sim::journal()).all("out \"\\e[0;32;31m[libmarl] ERROR")[0].text;
    EXPECT_EQ(count(error.substr(0, error.find("): "))), 1U) << "each names its own line of the source";
    // A device that is not configured has neither names nor a driver, and hides nothing of the next.
    usb_list::put(first.substr(0, first.rfind("I:")) + nameless + block({.port = 1}));
    EXPECT_EQ(summary(get_usb_devs), "2 -1 , 0 -1 , ");
}

TEST(UsbListing, ADirectoryThatCannotBeReadToItsEndGivesNoList) {
    put_devices(block({}));
    put_interface("1-1/1-1:1.0/ttyUSB0");
    for (const auto listing : {get_usb_devs, get_mult3Ginfo_FromFile}) {
        g_readable = 5;
        const Listed listed = list(listing);
        EXPECT_EQ(Ints({listed.result, listed.devices[0].manufacturer[0]}), Ints({-1, 0}));
        g_readable = -1;
    }
    EXPECT_TRUE(reported("dvr_find_file failed") && reported("find_File failed"));
    EXPECT_EQ((run("fault heap calloc 1 ENOMEM"), list(get_usb_devs).result), kHeapFails ? -1 : 0);
}

TEST(UsbListing, WaitsTwoSecondsForTheList) {
    load("");
    UsbDevice room;
    int size = 1;
    EXPECT_EQ(get_usb_devs(&room, &size), -1);
    EXPECT_NEAR(sim::now(), 2.0, 0.01);
    run("at 2.7 usb none"), room.bus = 7;
    EXPECT_EQ(Ints({get_usb_devs(&room, &size), room.bus, size, get_usb_devs(&room, &size)}), Ints(4, 0));
    EXPECT_NEAR(sim::now(), 3.0, 0.01) << "looked for every 500 ms";
    int negative = -1, some = 1;
    EXPECT_EQ(Ints({get_usb_devs(&room, &negative), get_usb_devs(nullptr, &some)}), Ints(2, -1));
    EXPECT_TRUE(reported("arguments  error"));
}

int collect(const char* path, void* paths, int size) {
    static_cast<Strings*>(paths)->push_back(path);
    return size;
}

Strings find(const char* name, const char* directory, int answer = 0) {
    Strings paths;
    const DvrFindRequest request = {name, directory, &paths, answer, collect};
    EXPECT_EQ((errno = EIO, dvr_find_file(&request)), 0);
    std::sort(paths.begin(), paths.end());
    return paths;
}

TEST(FileSearch, FollowsNoLink) {
    const int next = dup(STDIN_FILENO);
    close(next);
    namespace fs = std::filesystem;
    const fs::path there = path_of("/sys/devices");
    write_file("/sys/devices/wanted/wanted_too", "");
    fs::create_directory_symlink(there, there / "round");
    EXPECT_EQ(find("wanted", "/sys/devices/"), Strings({"/sys/devices/wanted"})) << "one '/' between parts";
    write_file("/sys/devices/file_wanted", "");
    fs::create_symlink("nowhere", there / "link_wanted");
    EXPECT_EQ(find("wanted", "/sys/devices", -1),
              Strings({"/sys/devices/file_wanted", "/sys/devices/link_wanted", "/sys/devices/wanted"}));
    EXPECT_TRUE(reported("find_pt->deal_result failed") && reported("ident_name failed") &&
                reported("resolve_subusb_info failed"));

    put_devices(block({}));
    put_interface("1-1/1-1.1/1-1.1:1.0/ttyUSB0");
    put_interface("1-1/1-1:1.0/deeper/by_one/ttyUSB1");
    fs::create_symlink("1-1", path_of(kHost) + "1-1/1-1:1.0/ttyUSB3");
    EXPECT_EQ(names_of(list(get_mult3Ginfo_FromFile).devices.at(0)), "ttyUSB0 ");
    EXPECT_EQ(dup(STDIN_FILENO), next) << "no directory stays open";
}

TEST(FileSearch, NamesAtTheirLimits) {
    const std::string longest(255, 'n');
    write_file("/sys/devices/d/" + longest, "");
    EXPECT_EQ(find(longest.c_str(), "/sys/devices"), Strings({"/sys/devices/d/" + longest}));
    write_file("/sys/devices/d/m", "");
    const std::string no_more_room = "/sys/devices/d" + std::string(3850, '/');
    EXPECT_EQ(find("m", no_more_room.c_str()), Strings({no_more_room + "m"})) << "the other is left out";
    Strings paths;
    const std::string too_long(5000, 'd');
    for (const DvrFindRequest& refused : {DvrFindRequest{"n", too_long.c_str(), &paths, 0, collect},
                                          {"n", "/sys", &paths, 0, nullptr},
                                          {nullptr, "/sys", &paths, 0, collect}})
        EXPECT_EQ(dvr_find_file(&refused), -1);
    EXPECT_TRUE(reported("parameter error"));
}

}  // namespace
