// The 3G modem: found on USB, told apart, waited for and power-cycled.
#include <libmarl/hwinfo.h>
#include <libmarl/modem.h>
#include <libmarl/power_3g.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include "helpers/board.h"
#include "helpers/usb_list.h"

// Who sends the events of the board, and one that never ends coming.
static struct {
    uint32_t sender;
    std::string_view storm;
} g_network;
static sockaddr_nl g_bound;

extern "C" ssize_t recvfrom(int fd, void* data, size_t size, int flags, sockaddr* from, socklen_t* length) {
    sockaddr_nl sender{};
    sender.nl_family = AF_NETLINK;
    sender.nl_pid = g_network.sender;
    if (from != nullptr) memcpy(from, &sender, *length);
    if (g_network.storm.empty())
        return board::behind(recvfrom, "recvfrom")(fd, data, size, flags, nullptr, nullptr);
    memcpy(data, g_network.storm.data(), std::min(size, g_network.storm.size()));
    return static_cast<ssize_t>(g_network.storm.size());
}
extern "C" int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
    memcpy(&g_bound, address, sizeof g_bound);
    return board::behind(bind, "bind")(fd, address, length);
}

namespace {

using namespace board;
using usb_list::block;
using usb_list::kRootHub;

void set_model(const char* model) {
    HWINFO = {};
    strcpy(HWINFO.product_model, model);
}

// A list of devices on these ports, a digit each, and each with its place in the list for a product ID.
std::string list_of(const std::string& ports) {
    std::string list = block(kRootHub);
    for (size_t i = 0; i < ports.size(); ++i) {
        const std::string id = "100" + std::to_string(i + 2);
        list += block({.level = i == 0 ? 1 : 2, .port = ports[i] - '0', .product_id = id.c_str()});
    }
    return list;
}

Usb3gModule g_module;

bool is_zero() {
    const Usb3gModule zero = {};
    return memcmp(&g_module, &zero, sizeof zero) == 0;
}

int find_in(std::string_view list) {
    usb_list::put(list);
    memset(&g_module, 'x', sizeof g_module);
    return find_3g_usb_device(&g_module);
}

// The product IDs of the modems found with devices on these ports, a digit each; empty where none
// is the modem.
Strings found(const char* model, const Strings& lists) {
    set_model(model);
    Strings product_ids;
    for (const std::string& ports : lists) {
        const int result = find_in(list_of(ports));
        product_ids.push_back(g_module.product_id);
        EXPECT_EQ(result, is_zero() ? -1 : 1) << model << " " << ports;
        EXPECT_EQ(find_and_identify_3g(&g_module), result == 1 ? 0 : -1) << model << " " << ports;
    }
    return product_ids;
}

TEST(ModemDiscovery, TakesTheDeviceThatTheHubLeaves) {
    EXPECT_EQ(found("QZ-NRX2", {"", "1"}), Strings({"", "1002"}));
    EXPECT_EQ(found("Q3", {"000"}), Strings({"1002"}));
    EXPECT_STREQ(g_module.product_id, "1003") << "once the model is known";
    for (const std::string model : {"IPC-KQ3", "VMK52F", "VMK51F", "IPC-KA2", "Q3", "Q5", "QZ-TRX5-KB-A"}) {
        set_model(model.c_str());
        EXPECT_EQ(check_usb_hub_model(), model == "IPC-KQ3" || model == "VMK52F" ? -1 : 0) << model;
    }
    EXPECT_EQ(found("Q3", {"0", "00", "01", "001", "01200"}), Strings({"", "1003", "", "1003", "1004"}));
    EXPECT_EQ(found("QZ-TRX5-KB-A", {"01", "012"}), Strings({"1003", "1004"}));
}

TEST(ModemDiscovery, ReadsWhatTheDeviceSaysOfItself) {
    const Usb3gModule& module = g_module;
    ASSERT_EQ(find_in(block(kRootHub) + block({})), 1);
    EXPECT_EQ(Strings({module.manufacturer, module.product, module.version, module.speed, module.vendor_id}),
              Strings({"ZTE, Incorporated", "HSPA modem", "2.00", "480", "19d2"}));
    const std::string longest(31, 'm'), longer = longest + "n";
    const std::string text = block({.vendor = "0123456789abcdefgh", .manufacturer = longer.c_str()});
    ASSERT_EQ(find_in(block(kRootHub) + text.substr(0, text.find("C:")) + text), 1) << "the next one ends it";
    EXPECT_EQ(Strings({module.manufacturer, module.vendor_id}), Strings({longest, "0123456789abcde"}));
    // The tail of a long line is no line: neither the 'T' nor the 'I' that it may begin with.
    const std::string filled = "S:  SerialNumber=" + std::string(127 - 17, '0');
    std::string list = block(kRootHub) + block({.manufacturer = nullptr});
    list.insert(list.find("C:", list.rfind("T:")), filled + "T: no\n" + filled + "I: no\nS:  Product=late\n");
    ASSERT_EQ(find_in(list), 1) << "an interface ends a block without names";
    EXPECT_EQ(Strings({module.product, module.manufacturer}), Strings({"late", ""}));
}

TEST(ModemDiscovery, AListThatEndsTooEarlyHasNoModem) {
    for (const auto& [model, list] : {std::pair("QZ-NRX2", list_of("0")), {"Q4", list_of("00")}}) {
        set_model(model);
        check_usb_hub_model();
        const size_t complete = list.find("C:", list.rfind("T:")) + 1;  // identified, and more to come
        for (size_t size = 0; size <= list.size(); ++size) {
            ASSERT_EQ(find_in(std::string_view(list).substr(0, size)), size >= complete ? 1 : -1) << size;
            ASSERT_EQ(is_zero(), size < complete);
        }
    }
}

TEST(ModemIdentity, VendorsAndKnownModules) {
    const auto known = [](const char* manufacturer, const char* vendor, const char* product) {
        g_module = {};
        strcpy(g_module.manufacturer, manufacturer);
        strcpy(g_module.vendor_id, vendor);
        strcpy(g_module.product_id, product);
        return Ints({identify_3g_modem(&g_module), lookup_3g_module(&g_module)});
    };
    EXPECT_EQ(known("HUA?WEI TECHNOLOGIES", "12d1", "1001"), Ints({2, 0}));
    EXPECT_EQ(known("ZTE, Incorporated", "19d2", "ffed"), Ints({1, 1}));
    EXPECT_EQ(known("ZTE, Incorporated", "19d2", "fff1"), Ints({1, 2}));
    EXPECT_EQ(known("Qualcomm, Incorporated", "19d2", "0026"), Ints({1, 3}));
    EXPECT_EQ(known("HUAWEI Technology", "12d1", "1001"), Ints({2, 4}));
    EXPECT_EQ(known("AnyDATA Corporation", "16d5", "6502"), Ints({-1, 5}));
    EXPECT_EQ(known("Motorola Inc.", "22b8", "4264"), Ints({4, 6}));
    EXPECT_EQ(known("HUAWEI Technology", "12d1", "1002"), Ints({2, -1}));
    EXPECT_EQ(known("HUAWEI Technology ", "12d1", "1001"), Ints({2, -1}));
    EXPECT_EQ(known("Motorola Inc.", "22B8", "4264"), Ints({4, -1}));
    EXPECT_EQ(known("", "1ab7", ""), Ints({3, -1}));
    EXPECT_EQ(known("ZTE, Incorporated", "19d20", "fff1"), Ints({4, -1}));
    EXPECT_EQ(Ints({lookup_3g_module(nullptr), find_3g_usb_device(&g_module)}), Ints(2, -1));  // no list
    EXPECT_TRUE(journal_follows({"err \"usbModule Param NULL\""}));
}

// That the modem's line was switched off and on again, each time for so long.
void expect_cycles(size_t cycles, const std::string& line, bool off, double time) {
    auto turns = scenario::Journal(sim::journal()).all("/dev/misc/g");
    std::erase_if(turns, [](const auto& event) { return event.text.find(" write ") == event.text.npos; });
    ASSERT_EQ(turns.size(), 2 * cycles);
    for (size_t i = 0; i < turns.size(); ++i)
        EXPECT_EQ(turns[i].text, "/dev/misc/" + line + ((i % 2 == 0) == off ? " 01" : " 00"));
    for (size_t i = 0; i < turns.size(); i += 2) EXPECT_NEAR(turns[i + 1].time - turns[i].time, time, 0.005);
}

constexpr const char* kExpander = "gio_expander write 2: 06";

TEST(ModemReset, TheModemDecidesHowLongItsPowerIsOff) {
    const std::string unknown = "Anybody", known = "HUA?WEI TECHNOLOGIES";
    const std::string gpio = "gpio write 2: ";
    const struct {
        const char* model;
        std::string manufacturer;  // empty: no modem
        std::string line;
        bool off;                         // its level
        double off_s, off_before_wait_s;  // when the modem is waited for afterwards
    } cycles[] = {
        {"IPC-KP1", "", gpio + "30", true, 0.8, 0.8},
        {"IPC-KP1", known, gpio + "30", true, 2, 2},
        {"IPC-KL9", unknown, kExpander, true, 0.8, 0.8},

        {"IPC-KT1", known, gpio + "20", true, 2, 2},
        {"IPC-KT2", known, gpio + "20", true, 0.8, 2},
        {"IPC-KQ3", known, gpio + "1a", true, 0.8, 0.8},
        {"QZ-TRX5-KB-A", unknown, gpio + "25", false, 2, 2},
        {"QZ-TRX5-KB-A", "", gpio + "25", false, 0.8, 0.8},
        {"QZ-NRX2", unknown, kExpander, false, 0.8, 2},
    };
    for (const auto& c : cycles) {
        for (const bool waits : {false, true}) {
            SCOPED_TRACE(std::string(c.model) + (waits ? " and wait " : " ") + c.manufacturer);
            load("present /dev/mem\ntruncate /dev/mem 29630464");  // on which a PHY takes 6 ms to go on
            set_model(c.model);
            run(c.manufacturer.empty() ? "usb none" : "usb 12d1 1001 1-1 " + c.manufacturer + "/modem");
            EXPECT_EQ(waits ? reset_3g_and_wait() : reset_3g(), waits && c.manufacturer.empty() ? -1 : 0);
            expect_cycles(1, c.line, c.off, waits ? c.off_before_wait_s : c.off_s);
        }
    }
}

TEST(ModemReset, SwitchesThePhyWithTheModemOfOneModel) {
    load("delete /dev/mem");
    set_model("IPC-KQ3");
    usb_list::put(block(kRootHub) + block({}));
    const std::string off = "/dev/misc/gpio write 2: 1a 01", on = "/dev/misc/gpio write 2: 1a 00";
    EXPECT_EQ(Ints({reset_3g(), reset_3g_and_wait()}), Ints(2, 0));
    EXPECT_TRUE(journal_follows({off, "/dev/mem", on, "/dev/mem", off, "/dev/mem", on, "/dev/mem"}));
    sim::clear_journal();
    usb_list::put(block(kRootHub));
    EXPECT_EQ(Ints({reset_3g_ifindex(3), reset_3g_ifindex_unchecked(-1)}), Ints(2, 0));
    EXPECT_TRUE(journal_follows({"out \"[libmarl] inerface index  is 3\\n\"", off,
                                 "out \"[libmarl] inerface index  is -1\\n\"", off}));
    EXPECT_FALSE(seen("/dev/mem")) << "nothing to protect without a modem";
}

TEST(ModemReset, CyclesFollowEachOther) {
    set_model("QZ-NRX2");
    usb_list::put(block(kRootHub));
    std::thread other(reset_3g);
    EXPECT_EQ(reset_3g(), 0);
    usleep(5'000'000);  // the other goes on in the board's time
    other.join();
    expect_cycles(2, kExpander, false, 0.8);
}

// The modem appears in the list of devices.
void plug_in_at(const std::string& seconds) {
    run("at " + seconds + " usb 19d2 fff1 1-1 ZTE, Incorporated/HSPA modem");
}

TEST(ModemReset, WaitsUntilTheModemIsBack) {
    for (const bool comes : {true, false}) {
        load("");
        set_model("QZ-NRX2");
        usb_list::put(block(kRootHub));
        if (comes) plug_in_at("3");
        EXPECT_EQ(reset_3g_and_wait(), comes ? 0 : -1);
        EXPECT_NEAR(sim::now(), comes ? 3.3 : 60.8, 0.01) << "looked for every 500 ms from 0.8 s on";
        EXPECT_EQ(seen("3G modem is not back within 60 s"), !comes);
    }
}

constexpr const char* kDirect = "/devices/platform/musb_hdrc/usb1/1-1";
constexpr const char* kOnHub = "/devices/platform/musb_hdrc/usb1/1-1/1-1.1";
constexpr const char* kOnSecondPort = "/devices/platform/musb_hdrc/usb1/1-1/1-1.2";

void event_at(const std::string& seconds, const std::string& path, const std::string& how = "") {
    run("at " + seconds + " uevent " + how + " add@" + path + "\\x00ACTION=add\\x00DEVPATH=" + path);
}

// Begins a board with the attributes of a device, as the kernel shows them, and its event at that time.
void begin(const std::string& time = "", const std::string& device = kDirect, const char* model = "QZ-NRX2") {
    load("");
    set_model(model);
    usb_list::put(block(kRootHub));
    const std::pair<const char*, std::string> attributes[] = {{"/manufacturer", "  ZTE, Incorporated\n"},
                                                              {"/version", " 2.00\n"},
                                                              {"/idVendor", "1ab7\n"},
                                                              {"/idProduct", "fff1"},
                                                              {"/speed", "480\n" + std::string(4000, '0')}};
    for (const auto& [name, value] : attributes) write_file("/sys" + device + name, value);
    if (!time.empty()) event_at(time, device);
}

int wait(int polls) { return wait_3g_usb_device(&g_module, polls); }

// What the modem type selects: the line of one model's switch.
bool is_third_vendor() {
    set_model("KXE4AM");
    HWINFO.video_channel = 4;
    sim::clear_journal();
    power_3g_on();
    return seen("gpio write 2: 30");
}

TEST(ModemWait, TheEventsDeviceIsRead) {
    // Events are looked at after 20 polls, and when the limit is used up.
    for (const auto& [polls, seconds] : {std::pair(100, 2.0), {7, 0.7}}) {
        begin(), run("at 0.55 uevent"), event_at("0.55", kDirect);
        EXPECT_EQ(wait(polls), 0);
        EXPECT_NEAR(sim::now(), seconds, 0.01);
    }
    const Usb3gModule& module = g_module;
    EXPECT_EQ(Strings({module.manufacturer, module.product, module.version, module.product_id, module.speed}),
              Strings({"ZTE, Incorporated", "", "2.00", "fff1", "480"}));
    EXPECT_TRUE(is_third_vendor());

    begin();
    run("fault socket bind 1 EADDRINUSE");
    event_at("2", "/devices/nothing");
    event_at("4.05", kDirect);
    event_at("4.25", "/devices/nothing");
    EXPECT_EQ(wait(0), 0);
    EXPECT_NEAR(sim::now(), 5.3, 0.01) << "without a limit, a second after the last";
    EXPECT_TRUE(journal_follows({"socket set", "socket bind 16", "socket bind 16", "err \"Open: No such"}));
    EXPECT_TRUE(g_bound.nl_groups == 1 && g_bound.nl_pid == 0) << "the kernel's events, on any port";

    begin();
    usb_list::put(block(kRootHub) + block({.vendor = "12d1"}));
    EXPECT_EQ(wait(0), 0);
    EXPECT_EQ(sim::now(), 0) << "a modem that is there is not waited for";
    EXPECT_FALSE(is_third_vendor());
}

TEST(ModemWait, WhatDoesNotFitIsDropped) {
    begin(), event_at("0.01", "/devices/nothing");  // is dropped before the others come
    event_at("2.01", "/devices/other", "padded:4097");
    event_at("2.02", kDirect, "padded:4096");
    for (int i = 0; i < 5; ++i) event_at("2.15", "/devices/other", "padded:2000");
    EXPECT_EQ(wait(23), 0) << "the first that fits is the one";

    for (const size_t length : {123U, 124U}) {  // and "/sys" before it
        std::string path = kDirect;
        path += "/" + std::string(length - path.size() - 1, 'p');
        begin("0.01", path);
        EXPECT_EQ(Ints({wait(3), seen("err \"Open: ")}), Ints({length == 123 ? 0 : -1, 0})) << length;
    }
    begin();
    run("at 0.01 uevent no path at all\nat 0.01 uevent");
    EXPECT_EQ(Ints({wait(3), wait(1)}), Ints(2, -1));
}

TEST(ModemWait, OnlyTheKernelsEventsAtTheModemsPlaceCount) {
    const char* const any_port = "QZ-TRX5-KB-A";
    const struct {
        int result;
        std::string path, shown = "";  // on boards with a hub
        const char* model = "QZ-NRX2";
        uint32_t sender = 0;
    } events[] = {
        {-1, kDirect, "", "QZ-NRX2", 4711},
        {-1, "/devices/platform/../platform/musb_hdrc/usb1/1-1"},
        {-1, "/devices/platform/musb_hdrc/..usb1/1-1/up/.."},
        {0, "/devices/platform/musb_hdrc/usb1.."},
        {0, kOnHub, "1-1.1", "Q3"},
        {-1, kOnSecondPort, "1-1.2", "Q3"},
        {0, kOnSecondPort, "1-1.2", any_port},
        {-1, kDirect, "1-1", any_port},
        {-1, std::string(kOnHub) + "0", "1-1.1", "Q3"},
        {-1, std::string(kOnHub) + "/1-1.1:1.0", "1-1.1", "Q3"},
    };
    for (const auto& event : events) {
        SCOPED_TRACE(event.model + event.path);
        begin("0.01", event.path, event.model);
        g_network = {event.sender, ""};
        EXPECT_EQ(wait(3), event.result);
        EXPECT_EQ(is_zero(), event.result != 0);
        EXPECT_FALSE(seen("err \"Open: ")) << "no file is looked for";
        EXPECT_EQ(seen("out \"[libmarl] busTmp = " + event.shown + "------\\n\""), !event.shown.empty());
    }
    for (const uint32_t sender : {0U, 4711U}) {
        begin();
        g_network = {sender, "add@/devices/nothing"};
        EXPECT_EQ(wait(7), -1);
        EXPECT_NEAR(sim::now(), 0.7, 0.01) << "a storm does not make the wait longer";
    }
    g_network = {};
}

TEST(ModemWait, FailuresEndWithALastLook) {
    usb_list::put(block(kRootHub) + block({.vendor = "1ab7"}));
    EXPECT_TRUE(find_and_identify_3g(&g_module) == 0 && is_third_vendor());
    begin();
    EXPECT_EQ(wait(30), -1);
    EXPECT_NEAR(sim::now(), 3, 0.01);
    EXPECT_FALSE(is_third_vendor()) << "no modem has no type";
    plug_in_at("3.25");
    EXPECT_EQ(wait(3), 0) << "although its event comes too late";
    begin(), run("fault heap malloc 1 ENOMEM\nfault socket open 1 EMFILE\nfault socket bind 1 EIO");
    EXPECT_EQ(Ints({wait(0), wait(0), kHeapFails ? wait(0) : -1}), Ints(3, -1))
        << "what cannot be heard is not waited for";
}

}  // namespace
