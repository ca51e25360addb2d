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

namespace {

using namespace board;
using usb_list::block;
using usb_list::kRootHub;

void set_model(const char* model) {
    HWINFO = {};
    strcpy(HWINFO.product_model, model);
}

// A list of devices on these ports, each with its place in the list for a product ID.
std::string list_of(const Ints& ports) {
    std::string list = block(kRootHub);
    for (size_t i = 0; i < ports.size(); ++i) {
        const std::string id = "100" + std::to_string(i + 2);
        list += block({.level = i == 0 ? 1 : 2, .port = ports[i], .product_id = id.c_str()});
    }
    return list;
}

bool is_zero(const Usb3gModule& module) {
    const Usb3gModule zero = {};
    return memcmp(&module, &zero, sizeof zero) == 0;
}

// Puts devices on these ports; an empty `product_id` means that none is the modem.
void expect_found(const char* model, const Ints& ports, const std::string& product_id) {
    SCOPED_TRACE(model + std::string(" with devices: ") + std::to_string(ports.size()));
    set_model(model);
    usb_list::put(list_of(ports));
    Usb3gModule module;
    memset(&module, 'x', sizeof module);
    EXPECT_EQ(find_3g_usb_device(&module), product_id.empty() ? -1 : 1);
    EXPECT_EQ(module.product_id, product_id);
    EXPECT_EQ(is_zero(module), product_id.empty());
}

TEST(ModemDiscovery, TakesTheDeviceThatTheHubLeaves) {
    expect_found("QZ-NRX2", {}, "");
    expect_found("QZ-NRX2", {1}, "1002");
    expect_found("Q3", {0, 0, 0}, "1002");
    for (const std::string model :
         {"IPC-KQ3", "VMK52F", "VMK51F", "IPC-KA2", "Q3", "Q4", "Q5", "QZ-TRX5-KB-A"}) {
        set_model(model.c_str());
        EXPECT_EQ(check_usb_hub_model(), model == "IPC-KQ3" || model == "VMK52F" ? -1 : 0) << model;
    }
    const std::pair<Ints, const char*> found[] = {
        {{}, ""}, {{0}, ""}, {{0, 0}, "1003"}, {{0, 1}, ""}, {{0, 0, 1}, "1003"}, {{0, 1, 2, 0, 0}, "1004"}};
    for (const auto& [ports, product_id] : found) expect_found("Q3", ports, product_id);
    expect_found("QZ-TRX5-KB-A", {0, 1}, "1003");
    expect_found("QZ-TRX5-KB-A", {0, 1, 2}, "1004");
}

TEST(ModemDiscovery, ReadsWhatTheDeviceSaysOfItself) {
    usb_list::put(block(kRootHub) + block({}));
    Usb3gModule module;
    ASSERT_EQ(find_3g_usb_device(&module), 1);
    EXPECT_EQ(Strings({module.manufacturer, module.product, module.version, module.speed, module.vendor_id}),
              Strings({"ZTE, Incorporated", "HSPA modem", "2.00", "480", "19d2"}));
    const std::string longest(31, 'm');
    usb_list::put(block(kRootHub) +
                  block({.vendor = "0123456789abcdefgh", .manufacturer = (longest + "n").c_str()}));
    ASSERT_EQ(find_3g_usb_device(&module), 1);
    EXPECT_EQ(Strings({module.manufacturer, module.vendor_id}), Strings({longest, "0123456789abcde"}));
    // The tail of a long line is no line: neither the 'T' nor the 'I' that it may begin with.
    const std::string long_line = "S:  SerialNumber=" + std::string(127 - 17, '0');
    std::string list = block(kRootHub) + block({.manufacturer = nullptr});
    list.insert(list.find("C:", list.rfind("T:")),
                long_line + "T: no\n" + long_line + "I: no\nS:  Product=late\n");
    usb_list::put(list);
    ASSERT_EQ(find_3g_usb_device(&module), 1) << "an interface ends a block without names";
    EXPECT_EQ(Strings({module.product, module.manufacturer}), Strings({"late", ""}));
}

TEST(ModemDiscovery, AListThatEndsTooEarlyHasNoModem) {
    const auto cut_everywhere = [](const std::string& list) {
        const size_t complete = list.find("C:", list.rfind("T:")) + 1;  // identified, and more to come
        for (size_t size = 0; size <= list.size(); ++size) {
            usb_list::put(std::string_view(list).substr(0, size));
            Usb3gModule module;
            ASSERT_EQ(find_3g_usb_device(&module), size >= complete ? 1 : -1) << "cut at " << size;
            ASSERT_EQ(is_zero(module), size < complete);
        }
    };
    cut_everywhere(list_of({0}));
    set_model("Q4");
    EXPECT_EQ(check_usb_hub_model(), 0);
    cut_everywhere(list_of({0, 0}));
    Usb3gModule module;
    usb_list::put(list_of({0, 0}));
    sim::run("fault /proc/bus/usb/devices read 4 EIO");
    memset(&module, 'x', sizeof module);
    EXPECT_EQ(find_3g_usb_device(&module), -1);
    EXPECT_TRUE(is_zero(module));
    EXPECT_TRUE(journal_follows({"err \"fopen: Input/output error\\n\""}));
    sim::run("delete /proc/bus/usb/devices");
    EXPECT_EQ(find_and_identify_3g(&module), -1);
    EXPECT_TRUE(
        journal_follows({"out \"[libmarl] [libmarl] \"", "err \"fopen: No such file or directory\\n\""}));
    EXPECT_EQ(Ints({find_3g_usb_device(nullptr), find_and_identify_3g(nullptr)}), Ints(2, -1));
}

TEST(ModemIdentity, VendorsAndKnownModules) {
    struct {
        const char *manufacturer, *vendor, *product;
        int type;
        int row;
    } const modules[] = {
        {"HUA?WEI TECHNOLOGIES", "12d1", "1001", 2, 0},
        {"ZTE, Incorporated", "19d2", "ffed", 1, 1},
        {"ZTE, Incorporated", "19d2", "fff1", 1, 2},
        {"Qualcomm, Incorporated", "19d2", "0026", 1, 3},
        {"HUAWEI Technology", "12d1", "1001", 2, 4},
        {"AnyDATA Corporation", "16d5", "6502", -1, 5},
        {"Motorola Inc.", "22b8", "4264", 4, 6},
        {"HUAWEI Technology", "12d1", "1002", 2, -1},
        {"HUAWEI Technology ", "12d1", "1001", 2, -1},
        {"Motorola Inc.", "22B8", "4264", 4, -1},
        {"", "1ab7", "", 3, -1},
        {"", "", "", 4, -1},
        {"ZTE, Incorporated", "19d20", "fff1", 4, -1},
    };
    for (const auto& each : modules) {
        Usb3gModule module = {};
        strcpy(module.manufacturer, each.manufacturer);
        strcpy(module.vendor_id, each.vendor);
        strcpy(module.product_id, each.product);
        EXPECT_EQ(identify_3g_modem(&module), each.type) << each.manufacturer << each.vendor;
        EXPECT_EQ(lookup_3g_module(&module), each.row) << each.manufacturer << each.product;
    }
    EXPECT_EQ(Ints({lookup_3g_module(nullptr), identify_3g_modem(nullptr)}), Ints(2, -1));
    EXPECT_TRUE(journal_follows({"err \"usbModule Param NULL\""}));
}

// The line writes of the journal.
std::vector<scenario::Event> line_writes() {
    std::vector<scenario::Event> writes;
    for (const scenario::Event& event : scenario::Journal(sim::journal()).all("/dev/misc/g")) {
        if (event.text.find(" write ") != std::string::npos) writes.push_back(event);
    }
    return writes;
}

// That the modem's line was switched off and on again, each time for so long.
void expect_cycles(size_t cycles, const std::string& off, const std::string& on, double seconds) {
    const auto writes = line_writes();
    ASSERT_EQ(writes.size(), 2 * cycles);
    for (size_t i = 0; i < writes.size(); i += 2) {
        EXPECT_EQ(Strings({writes[i].text, writes[i + 1].text}),
                  Strings({"/dev/misc/" + off, "/dev/misc/" + on}));
        EXPECT_NEAR(writes[i + 1].time - writes[i].time, seconds, 0.005);
    }
}

TEST(ModemReset, TheModemDecidesHowLongItsPowerIsOff) {
    const std::string unknown = "Anybody", known = "ZTE, Incorporated";
    const std::string gpio = "gpio write 2: ", expander = "gio_expander write 2: 06 ";
    const struct {
        const char* model;
        std::string manufacturer;  // empty: no modem
        std::string off, on;
        double off_s;
        double off_before_wait_s;  // when the modem is waited for afterwards
    } cycles[] = {
        {"IPC-KP1", "", gpio + "30 01", gpio + "30 00", 0.8, 0.8},
        {"IPC-KP1", known, gpio + "30 01", gpio + "30 00", 2, 2},
        {"IPC-KL9", unknown, expander + "01", expander + "00", 0.8, 0.8},
        {"IPC-KL9", known, expander + "01", expander + "00", 2, 2},
        {"IPC-KT1", known, gpio + "20 01", gpio + "20 00", 2, 2},
        {"IPC-KT2", known, gpio + "20 01", gpio + "20 00", 0.8, 2},
        {"IPC-KQ3", known, gpio + "1a 01", gpio + "1a 00", 0.8, 0.8},
        {"QZ-TRX5-KB-A", unknown, gpio + "25 00", gpio + "25 01", 2, 2},
        {"QZ-TRX5-KB-A", "", gpio + "25 00", gpio + "25 01", 0.8, 0.8},
        {"QZ-NRX2", unknown, expander + "00", expander + "01", 0.8, 2},
    };
    for (const auto& c : cycles) {
        for (const bool and_wait : {false, true}) {
            SCOPED_TRACE(std::string(c.model) + (and_wait ? " and wait " : " ") + c.manufacturer);
            load("");
            set_model(c.model);
            usb_list::put(block(kRootHub) +
                          (c.manufacturer.empty() ? "" : block({.manufacturer = c.manufacturer.c_str()})));
            EXPECT_EQ(and_wait ? reset_3g_and_wait() : reset_3g(),
                      and_wait && c.manufacturer.empty() ? -1 : 0);
            expect_cycles(1, c.off, c.on, and_wait ? c.off_before_wait_s : c.off_s);
        }
    }
}

TEST(ModemReset, SwitchesThePhyWithTheModemOfOneModel) {
    sim::load("delete /dev/mem");
    set_model("IPC-KQ3");
    usb_list::put(block(kRootHub) + block({}));
    EXPECT_EQ(reset_3g(), 0);
    const Strings both = {"/dev/misc/gpio write 2: 1a 01", "/dev/mem open", "/dev/misc/gpio write 2: 1a 00",
                          "/dev/mem open"};
    EXPECT_TRUE(journal_follows(both));
    sim::clear_journal();
    EXPECT_EQ(reset_3g_and_wait(), 0);
    EXPECT_TRUE(journal_follows(both));
    sim::clear_journal();
    usb_list::put(block(kRootHub));
    EXPECT_EQ(Ints({reset_3g_ifindex(3), reset_3g_ifindex_unchecked(-1)}), Ints(2, 0));
    EXPECT_TRUE(
        journal_follows({"out \"[libmarl] inerface index  is 3\\n\"", "/dev/misc/gpio write 2: 1a 01",
                         "out \"[libmarl] inerface index  is -1\\n\"", "/dev/misc/gpio write 2: 1a 01"}));
    EXPECT_FALSE(seen("/dev/mem")) << "nothing to protect without a modem";
}

TEST(ModemReset, CyclesFollowEachOther) {
    set_model("QZ-NRX2");
    usb_list::put(block(kRootHub));
    std::thread other(reset_3g);
    EXPECT_EQ(reset_3g(), 0);
    usleep(5'000'000);  // the other goes on in the board's time
    other.join();
    expect_cycles(2, "gio_expander write 2: 06 00", "gio_expander write 2: 06 01", 0.8);
}

std::string escaped(const std::string& text) {
    std::string out;
    for (const char c : text) out += c == '\n' ? std::string("\\n") : std::string(1, c);
    return out;
}

// The modem appears in the list of devices.
void plug_in_at(const std::string& seconds) {
    run("at " + seconds + " file! /proc/bus/usb/devices " + escaped(block(kRootHub) + block({})));
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

// Begins a board with the attributes of a device, as the kernel shows them.
void begin(const char* model, const std::string& device) {
    load("");
    set_model(model);
    usb_list::put(block(kRootHub));
    const std::pair<const char*, std::string> attributes[] = {{"/manufacturer", "  ZTE, Incorporated\n"},
                                                              {"/version", " 2.00\n"},
                                                              {"/idVendor", "1ab7\n"},
                                                              {"/idProduct", "fff1"},
                                                              {"/speed", "480\n" + std::string(4000, '0')}};
    for (const auto& [name, value] : attributes) write_file("/sys" + device + name, value);
}

void event_at(const std::string& seconds, const std::string& path, const std::string& how = "") {
    run("at " + seconds + " uevent " + how + " add@" + path + "\\x00ACTION=add\\x00DEVPATH=" + path);
}

// What the modem type selects: the line of one model's switch.
bool is_third_vendor() {
    set_model("KXE4AM");
    HWINFO.video_channel = 4;
    sim::clear_journal();
    power_3g_on();
    return seen("gpio write 2: 30");
}

TEST(ModemWait, TheEventsDeviceIsRead) {
    Usb3gModule module;
    begin("QZ-NRX2", kDirect);
    event_at("0.35", kDirect);
    EXPECT_EQ(wait_3g_usb_device(&module, 100), 0);
    EXPECT_NEAR(sim::now(), 2, 0.01) << "events are looked at after 20 polls";
    EXPECT_EQ(Strings({module.manufacturer, module.product, module.version, module.product_id, module.speed}),
              Strings({"ZTE, Incorporated", "", "2.00", "fff1", "480"}));
    EXPECT_TRUE(is_third_vendor());

    begin("QZ-NRX2", kDirect);
    event_at("0.35", kDirect);
    EXPECT_EQ(wait_3g_usb_device(&module, 7), 0);
    EXPECT_NEAR(sim::now(), 0.7, 0.01) << "and when the limit is used up";

    begin("QZ-NRX2", kDirect);
    event_at("2", "/devices/nothing");
    event_at("4.05", kDirect);
    event_at("4.25", "/devices/nothing");
    EXPECT_EQ(wait_3g_usb_device(&module, 0), 0);
    EXPECT_NEAR(sim::now(), 5.3, 0.01) << "without a limit, a second after the last";
    EXPECT_TRUE(journal_follows({"err \"Open: No such file or directory\\n\"", "/sys/devices/platform"}));

    begin("QZ-NRX2", kDirect);
    usb_list::put(block(kRootHub) + block({.vendor = "12d1"}));
    EXPECT_EQ(wait_3g_usb_device(&module, 0), 0);
    EXPECT_EQ(sim::now(), 0) << "a modem that is there is not waited for";
    EXPECT_FALSE(is_third_vendor());
}

TEST(ModemWait, ABoardWithAHubKnowsTheModemsPlace) {
    struct {
        const char* model;
        std::string path;
        const char* shown;
        int result;
    } const events[] = {
        {"Q3", kOnHub, "1-1.1", 0},
        {"Q3", kOnSecondPort, "1-1.2", -1},
        {"QZ-TRX5-KB-A", kOnSecondPort, "1-1.2", 0},
        {"QZ-TRX5-KB-A", kDirect, "1-1", -1},
        {"Q3", std::string(kOnHub) + "0", "1-1.1", -1},
        {"Q3", std::string(kOnHub) + "/1-1.1:1.0", "1-1.1", -1},
    };
    for (const auto& event : events) {
        SCOPED_TRACE(event.model + event.path);
        begin(event.model, event.path);
        event_at("0.05", event.path);
        Usb3gModule module;
        EXPECT_EQ(wait_3g_usb_device(&module, 3), event.result);
        EXPECT_EQ(is_zero(module), event.result != 0);
        EXPECT_TRUE(
            journal_follows({std::string("out \"[libmarl] busTmp = ") + event.shown + "------\\n\""}));
    }
}

TEST(ModemWait, WhatDoesNotFitIsDropped) {
    Usb3gModule module;
    begin("QZ-NRX2", kDirect);
    event_at("0.01", "/devices/other", "padded:4097");
    event_at("0.02", kDirect, "padded:4096");
    for (int i = 0; i < 5; ++i) event_at("0.15", "/devices/other", "padded:2000");
    EXPECT_EQ(wait_3g_usb_device(&module, 3), 0) << "the first that fits is the one";

    for (const size_t length : {123U, 124U}) {  // and "/sys" before it
        std::string path = kDirect;
        path += "/" + std::string(length - path.size() - 1, 'p');
        begin("QZ-NRX2", path);
        event_at("0.01", path);
        EXPECT_EQ(wait_3g_usb_device(&module, 3), length == 123 ? 0 : -1) << length;
    }
    begin("QZ-NRX2", kDirect);
    sim::run("at 0.01 uevent no path at all\nat 0.01 uevent");
    EXPECT_EQ(wait_3g_usb_device(&module, 3), -1);
}

TEST(ModemWait, OnlyTheKernelsEventsCount) {
    const struct {
        uint32_t sender;
        std::string path;
        int result;
    } events[] = {{0, kDirect, 0},
                  {4711, kDirect, -1},
                  {0, "/devices/platform/../platform/musb_hdrc/usb1/1-1", -1},
                  {0, "/devices/platform/musb_hdrc/usb1/1-1/up/..", -1},
                  {0, "/devices/platform/musb_hdrc/usb1..", 0}};
    for (const auto& event : events) {
        begin("QZ-NRX2", event.path);
        event_at("0.01", event.path);
        g_network = {event.sender, ""};
        Usb3gModule module;
        EXPECT_EQ(wait_3g_usb_device(&module, 3), event.result) << event.path;
        EXPECT_EQ(is_zero(module), event.result != 0);
        EXPECT_FALSE(seen("err \"Open: ")) << "no file is looked for";
    }
    for (const uint32_t sender : {0U, 4711U}) {
        begin("QZ-NRX2", kDirect);
        g_network = {sender, "add@/devices/nothing"};
        Usb3gModule module;
        EXPECT_EQ(wait_3g_usb_device(&module, 7), -1);
        EXPECT_NEAR(sim::now(), 0.7, 0.01) << "a storm does not make the wait longer";
    }
    g_network = {};
}

TEST(ModemWait, FailuresEndWithALastLook) {
    Usb3gModule module;
    begin("QZ-NRX2", kDirect);
    module = {};
    strcpy(module.vendor_id, "1ab7");
    identify_3g_modem(&module);
    EXPECT_EQ(wait_3g_usb_device(&module, 30), -1);
    EXPECT_NEAR(sim::now(), 3, 0.01);
    EXPECT_FALSE(is_third_vendor()) << "no modem has no type";
    EXPECT_EQ(wait_3g_usb_device(nullptr, 1), -1);

    begin("QZ-NRX2", kDirect);
    event_at("0.01", kDirect);
    run(std::string("delete /sys") + kDirect + "/speed");
    plug_in_at("0.25");
    EXPECT_EQ(wait_3g_usb_device(&module, 3), 0) << "the list has it by then";
    EXPECT_STREQ(module.product, "HSPA modem");
    EXPECT_TRUE(
        journal_follows({"err \"Open: No such file or directory\\n\"", "/proc/bus/usb/devices open"}));

    begin("QZ-NRX2", kDirect);
    event_at("0.01", kDirect);
    sim::run("fault socket bind 1 EADDRINUSE");
    EXPECT_EQ(wait_3g_usb_device(&module, 3), 0) << "on a port of the kernel's choice";

    for (const auto& [fault, report] : {std::pair{"socket open", "socket"}, {"socket bind", "bind"}}) {
        begin("QZ-NRX2", kDirect);
        run(std::string("fault ") + fault + " 1+ EADDRINUSE");
        EXPECT_EQ(wait_3g_usb_device(&module, 0), -1);
        EXPECT_EQ(sim::now(), 0);
        EXPECT_TRUE(journal_follows({std::string("err \"") + report + ": Address already in use\\n\"",
                                     "/proc/bus/usb/devices open"}));
        EXPECT_EQ(count("socket close"), report[0] == 'b' ? 1U : 0U);
    }
}

}  // namespace
