// The network store, the interfaces as /proc shows them, and the texts around them.
#include <libmarl.h>

#include <fstream>
#include <iterator>
#include <string>

#include "helpers/scenario.h"
#include "sim.h"

namespace {

using scenario::journal_follows;

std::string file(const std::string& path) {
    std::ifstream stream(sim::root() + path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

const std::string kMain = "/mnt/mtd/Config/network";
const std::string kBackup = "/mnt/backup/Config/network";
const std::string kValid = "cmos 40 aa 55\n";
const std::string kDhcp = "file " + kMain + " USEDHCP = 1\nfile " + kMain + " DHCPIP = 172.16.0.9\nfile " +
                          kMain + " HOSTIP = 10.1.2.3\n";

struct ReadCase {
    const char* what;
    std::string board;
    const char* name;
    int type;
    int result;
    const char* value;
    std::vector<std::string> events;  // that the read leaves behind, in this order
};

TEST(Store, ReadsTheFirstCopyThatThereIs) {
    const std::vector<std::string> initialised = {
        "out \"[libmarl] var=0\\n\"", "/dev/misc/rtc write 3: 28 aa 55",
        "/dev/misc/rtc write 5: 2c c0 a8 01 6c", "/dev/misc/rtc write 5: 30 ff ff ff 00",
        "/dev/misc/rtc write 5: 34 c0 a8 01 01"};
    const ReadCase cases[] = {
        {"main file",
         "file " + kMain + " HOSTIP = 10.1.2.3\nfile " + kBackup + " HOSTIP = 10.9.9.9\n",
         "eth0",
         NET_ATTR_IP,
         0,
         "10.1.2.3",
         {}},
        {"lo has eth0's",
         "file " + kMain + " SUBMASK = 255.0.0.0\n",
         "lo",
         NET_ATTR_NETMASK,
         0,
         "255.0.0.0",
         {}},
        {"backup",
         "file " + kMain + " PRIO = 1\nfile " + kBackup + " HOSTIP = 10.9.9.9\n",
         "eth0",
         NET_ATTR_IP,
         0,
         "10.9.9.9",
         {}},
        {"no setting is passed over",
         "file " + kMain + " # HOSTIP of old\nfile " + kMain + " HOSTIP=1.1.1.1\nfile " + kMain +
             " HOSTIP =10.1.2.3\n",
         "eth0",
         NET_ATTR_IP,
         0,
         "10.1.2.3",
         {}},
        {"a key inside a value matches",
         "file " + kMain + " NOTE = HOSTIP\n",
         "eth0",
         NET_ATTR_IP,
         0,
         "HOSTIP",
         {}},
        {"a long value is cut",
         "file " + kMain + " HOSTIP = 1234567890123456789\n",
         "eth0",
         NET_ATTR_IP,
         0,
         "123456789012345",
         {}},
        {"eth2 has its own",
         "file " + kMain + "2 GATEWAYIP = 10.2.0.1\n",
         "eth2",
         NET_ATTR_GATEWAY,
         0,
         "10.2.0.1",
         {}},
        {"ppp0 has its own",
         "file " + kMain + "ppp0 HOSTIP = 10.3.0.1\n",
         "ppp0",
         NET_ATTR_IP,
         0,
         "10.3.0.1",
         {}},
        {"DHCP", kDhcp + "file " + kMain + " DHCPHAVEIP = 1\n", "eth0", NET_ATTR_IP, 0, "172.16.0.9", {}},
        {"DHCP without address",
         kDhcp,
         "eth0",
         NET_ATTR_IP,
         0,
         "10.1.2.3",
         {"err \"can not get IP by DHCP, use IP save in NETWORK\\n\""}},
        {"DHCP has no priority",
         kDhcp + "file " + kMain + " DHCPHAVEIP = 1\nfile " + kMain + " PRIO = 1\n",
         "eth0",
         NET_ATTR_PRIO,
         0,
         "1",
         {"err \"unkonw type\\n\""}},
        {"nothing, CMOS never written", "", "eth0", NET_ATTR_GATEWAY, 0, "192.168.1.1", initialised},
        {"nothing, CMOS valid", kValid + "cmos 44 0a 0b 0c 0d\n", "eth0", NET_ATTR_IP, 0, "10.11.12.13", {}},
        {"nothing, CMOS valid but empty", kValid, "eth0", NET_ATTR_NETMASK, 0, "255.255.255.0", {}},
        {"nothing, CMOS invalid",
         "cmos 40 34 12\n",
         "eth0",
         NET_ATTR_IP,
         -1,
         "192.168.1.108",
         {"out \"[libmarl] var=0x1234\\n\""}},
        {"nothing, CMOS unreadable",
         "fault /dev/misc/rtc read 1 EIO\n",
         "eth0",
         NET_ATTR_IP,
         -1,
         "192.168.1.108",
         {}},
        {"nothing, CMOS half readable",
         kValid + "fault /dev/misc/rtc read 2 EIO\n",
         "eth0",
         NET_ATTR_IP,
         -1,
         "192.168.1.108",
         {"err \"readComs\\n\""}},
        {"nothing, priority", "", "eth0", NET_ATTR_PRIO, 0, "0", {}},
        {"eth2, eth0 elsewhere",
         kValid + "cmos 44 0a 0b 0c 0d\n",
         "eth2",
         NET_ATTR_IP,
         0,
         "192.168.2.108",
         {}},
        {"eth2, eth0 on its default",
         kValid + "cmos 44 c0 a8 02 6c\n",
         "eth2",
         NET_ATTR_IP,
         0,
         "192.168.1.108",
         {}},
        {"eth2, CMOS invalid",
         "cmos 40 34 12\n",
         "eth2",
         NET_ATTR_IP,
         0,
         "192.168.2.108",
         {"out \"[libmarl] var=0x1234\\n\""}},
        {"ppp0 netmask", "", "ppp0", NET_ATTR_NETMASK, 0, "255.255.0.0", {}},
        {"eth1 is refused", "", "eth1", NET_ATTR_IP, -1, "", {}},
        {"wlan0 is refused", "", "wlan0", NET_ATTR_IP, -1, "", {"err \"Not support device wlan0\\n\""}},
        {"no such type", "", "eth0", 4, -1, "", {"err \"Type:4 error\\n\""}},
    };
    for (const ReadCase& c : cases) {
        SCOPED_TRACE(c.what);
        sim::load(("file /proc/net/dev eth0: 0\n" + c.board).c_str());
        char value[MARL_NET_VALUE_SIZE] = {};
        EXPECT_EQ(GetEthAttr(c.name, c.type, value, sizeof value), c.result);
        EXPECT_STREQ(value, c.value);
        EXPECT_TRUE(journal_follows(c.events));
        if (c.events != initialised) {
            EXPECT_EQ(scenario::Journal(sim::journal()).count("/dev/misc/rtc write"), 0U);
        }
    }
    char cut[15];
    EXPECT_EQ(GetEthAttr("eth0", NET_ATTR_IP, cut, sizeof cut), -1);
    EXPECT_EQ(GetEthAttr(nullptr, NET_ATTR_IP, cut, sizeof cut), -1);
    EXPECT_TRUE(journal_follows({"err \"str_length too short\\n\"", "err \"GetEthAttr :pEthName==NULL\""}));
}

TEST(Store, SavesFilesInOneWriteAndTheCmosCopy) {
    sim::load(("file " + kMain + " USEDHCP = 0\nfile " + kMain + " HOSTIP = 10.1.2.3\nfile! " + kBackup +
               " PRIO = 0")
                  .c_str());
    EXPECT_EQ(SaveEthAttr("eth0", NET_ATTR_IP, "10.7.7.7"), 0);
    EXPECT_EQ(file(kMain), "USEDHCP = 0\nHOSTIP = 10.7.7.7\n");
    EXPECT_EQ(file(kBackup), "PRIO = 0\nHOSTIP = 10.7.7.7\n");
    EXPECT_TRUE(
        journal_follows({kMain + " open rw create trunc", kMain + " write 30", kMain + " close",
                         kBackup + " open rw create trunc", kBackup + " write",
                         "/dev/misc/rtc write 3: 28 aa 55", "/dev/misc/rtc write 5: 2c 0a 07 07 07"}));
    sim::clear_journal();
    EXPECT_EQ(SaveEthAttr("eth0", NET_ATTR_PRIO, "1"), 0);
    EXPECT_EQ(SaveEthAttr("eth2", NET_ATTR_GATEWAY, "10.2.0.1"), 0);
    EXPECT_EQ(SaveEthAttr("eth0", NET_ATTR_IP, nullptr), 0);
    EXPECT_EQ(file(kMain + "2"), "GATEWAYIP = 10.2.0.1\n = = \n");
    EXPECT_EQ(file(kBackup + "2"), "GATEWAYIP = 10.2.0.1\n = = \n");
    EXPECT_EQ(scenario::Journal(sim::journal()).count("/dev/misc/rtc"), 0U);
    sim::run("fault /dev/misc/rtc write 1 EIO");
    EXPECT_EQ(SaveEthAttr("eth0", NET_ATTR_GATEWAY, "10.7.7.1"), -1);
    EXPECT_NE(file(kMain).find("GATEWAYIP = 10.7.7.1\n"), std::string::npos);
}

TEST(Store, RewritesPieceByPieceAndRefusesWhatDoesNotFit) {
    const std::string path = "/mnt/mtd/Config/any";
    // A line longer than a piece falls apart where a piece ends.
    sim::load(
        ("file " + path + " KEY = " + std::string(40, 'v') + "\nfile " + path + " OTHER = 1\n").c_str());
    EXPECT_EQ(NetConfigWriteKey(path.c_str(), "KEY", "new"), 0);
    EXPECT_EQ(file(path), "KEY = new\n" + std::string(15, 'v') + "\nOTHER = 1\n");
    const std::string full(4095 - 8, 'x');
    for (const auto& [content, result] : {std::pair(full, 0), std::pair(full + "x", -1)}) {
        sim::load("");
        std::ofstream(sim::root() + path) << content.substr(0, 30) << '\n' << content.substr(31);
        EXPECT_EQ(NetConfigWriteKey(path.c_str(), "K", "12"), result);
        EXPECT_EQ(file(path).size(), result == 0 ? 4095U : content.size());
    }
    // A file that cannot be read to its end is not cut down to what could be.
    sim::load(("file " + path + " KEEP = 1\nfault " + path + " read 1 EIO").c_str());
    EXPECT_EQ(NetConfigWriteKey(path.c_str(), "K", "1"), -1);
    EXPECT_EQ(file(path), "KEEP = 1\n");
    sim::load("");
    EXPECT_EQ(NetConfigWriteKey("/mnt/none/file", "K", "1"), -1);
    EXPECT_TRUE(journal_follows({"err \"open failed for K\""}));
    char name[32];
    EXPECT_EQ(NetConfigFileName(3, name, 25), -1) << "the path does not fit";
    EXPECT_EQ(NetConfigFileName(3, name, 28), 0);
    EXPECT_STREQ(name, "/mnt/mtd/Config/networkppp0");
    EXPECT_EQ(NetConfigFileName(1, name, 32), -1);
    EXPECT_EQ(NetAttrKeyName(0, name, 9), -1);
    EXPECT_TRUE(journal_follows({"err \"EthIndex=1!\\n\"", "err \"Len:9 is too short\\n\""}));
}

// With both copies in place, a power cut before any step of a save leaves the old value or the new one.
TEST(Store, SurvivesAPowerCutAtEveryStep) {
    const char* const values[][2] = {
        {"10.0.0.1", "10.0.0.222"}, {"255.255.255.0", "255.0.0.0"}, {"10.0.0.254", "10.0.0.9"}, {"0", "1"}};
    std::string board = "file /proc/net/dev eth0: 0\n";
    for (int type = 0; type < 4; ++type) {
        char key[16];
        NetAttrKeyName(type, key, sizeof key);
        for (const std::string& path : {kMain, kBackup})
            board += "file " + path + " " + key + " = " + values[type][0] + "\n";
    }
    for (int type = 0; type < 4; ++type) {
        int cuts = 0;
        for (bool finished = false; !finished; ++cuts) {
            const scenario::BoardDirectory directory;
            scenario::Options options;
            options.root = directory.path();
            options.arguments = {"save", "eth0", std::to_string(type), values[type][1]};
            finished =
                scenario::run("tests/setting", board + "cut " + std::to_string(cuts + 1) + "\n", options)
                    .status == 0;
            options.arguments = {"read", "eth0", std::to_string(type)};
            options.keep_output = true;
            const auto read = scenario::run("tests/setting", board, options);
            const bool is_old =
                read.output.find(std::string("\nread 0 ") + values[type][0] + "\n") != std::string::npos;
            const bool is_new =
                read.output.find(std::string("\nread 0 ") + values[type][1] + "\n") != std::string::npos;
            EXPECT_TRUE(finished ? is_new : is_old || is_new)
                << "type " << type << " cut " << cuts << read.output;
            ASSERT_LT(cuts, 20);
        }
        EXPECT_GE(cuts, 5) << "the cuts must reach the save";
    }
}

TEST(Store, KnowsAFactoryReset) {
    const char* const power_lost = "out \"\\e[1;33m[libmarl] WARN (src/net/net|NetConfigBeenReset|";
    sim::load("cmos 42 66");
    EXPECT_EQ(NetConfigBeenReset(), 1);
    EXPECT_EQ(NetConfigBeenReset(), 0);
    sim::load("cmos 42 ff");
    EXPECT_EQ(NetConfigBeenReset(), 1);
    EXPECT_TRUE(journal_follows({power_lost, "/dev/misc/rtc write 2: 2a 00",
                                 "out \"[libmarl] [LIBMARL]: May be the first burn flash\\n\""}));
    sim::load(("cmos 42 ff\nfile " + kBackup + " HOSTIP = 10.0.0.1").c_str());
    EXPECT_EQ(NetConfigBeenReset(), 0);
    EXPECT_TRUE(journal_follows({power_lost, power_lost}));
    sim::load("missing /dev/misc/rtc\nfault /dev/misc/rtc read 1+ EIO");
    EXPECT_EQ(NetConfigBeenReset(), -1);
    EXPECT_TRUE(journal_follows({"err \"ERR: Get CMOS Failed\\n\""}));
}

TEST(Interfaces, AsTheKernelListsThem) {
    NetDeviceEntry entries[MARL_NET_DEVICES_MAX];
    char names[32];
    int count = 0;
    sim::load("");
    EXPECT_EQ(NetGetEthDevice(entries, 10), 1);
    EXPECT_STREQ(entries[0].name, "eth0");
    EXPECT_EQ(NetGetEthName(names, sizeof names, &count), 0);
    EXPECT_STREQ(names, "eth0");
    sim::run(
        "file /proc/net/dev Inter-|   Receive\nfile /proc/net/dev     lo:  1 1 0 0 0 0 0 0 1 1\n"
        "file /proc/net/dev   eth0:11 12 0 0 0 0 0 0 13 14 0\nfile /proc/net/dev   eth1: 0\n"
        "file /proc/net/dev   eth2: 18446744073709551615 22 1 2 3 4 5 6 23 24\nfile /proc/net/dev   ppp0: 1 "
        "2 3");
    EXPECT_EQ(NetGetEthDevice(entries, 10), 3);
    EXPECT_STREQ(entries[2].name, "eth2");
    EXPECT_EQ(entries[2].wireless, 1);
    EXPECT_EQ(entries[0].wireless, 0);
    EXPECT_EQ(NetGetEthDevice(entries, 1), 1);
    EXPECT_EQ(NetGetEthDevice(entries, 0), -1);
    EXPECT_EQ(NetGetEthDevice(entries, 11), -1);
    EXPECT_EQ(NetGetEthDevice(nullptr, 1), -1);
    EXPECT_EQ(NetGetEthName(names, sizeof names, &count), 0);
    EXPECT_STREQ(names, "eth0::eth2::ppp0::");
    EXPECT_EQ(count, 3);
    EXPECT_EQ(NetGetEthName(names, 13, &count), 0);
    EXPECT_STREQ(names, "eth0::eth2::") << "as many as fit whole";
    EXPECT_EQ(NetGetEthName(names, 9, &count), -1);
    NetDeviceStats stats{};
    EXPECT_EQ(NetGetDeviceState("eth2", &stats), 2);
    EXPECT_EQ(stats.rx_bytes, UINT64_MAX);
    EXPECT_EQ(stats.rx_packets, 22U);
    EXPECT_EQ(stats.tx_bytes, 23U);
    EXPECT_EQ(stats.tx_packets, 24U);
    EXPECT_EQ(NetGetDeviceState("eth0", &stats), 0);
    EXPECT_EQ(stats.rx_bytes, 11U);
    EXPECT_EQ(NetGetDeviceState("ppp0", &stats), -1) << "columns are missing";
    EXPECT_EQ(NetGetDeviceState("eth1", &stats), -1);
    char name[MARL_NET_NAME_SIZE];
    sim::run("file /mnt/mtd/Config/network PRIO = 1");
    EXPECT_EQ(NetGetDefaultEth(name), 0);
    EXPECT_STREQ(name, "eth1");
    EXPECT_EQ(NetSetDefaultEth("eth2"), 0);
    EXPECT_EQ(file(kMain), "PRIO = 1\n");
    EXPECT_EQ(file(kMain + "2"), "PRIO = 0\n = = \n");
    EXPECT_EQ(NetSetDefaultEth("eth0"), 0);
    EXPECT_EQ(NetGetDefaultEth(name), 0);
    EXPECT_STREQ(name, "eth0");
    EXPECT_EQ(NetSetDefaultEth("eth1"), -1);
}

struct LinkCase {
    const char* report;
    uint16_t video_interface;
    const char* model;
    int state;
};

TEST(Interfaces, LinkState) {
    const std::string port = "file /proc/net/emac_link eth0 port Link State: ";
    const std::string four_down = port + "DOWN\n" + port + "DOWN\n" + port + "DOWN\n" + port + "DOWN\n";
    const std::string up = port + "UP\n", down = port + "DOWN\n", odd = port + "RESET\n";
    const LinkCase cases[] = {
        {up.c_str(), 0, "IPC-KQ3", 0},
        {down.c_str(), 0, "IPC-KQ3", -1},
        {odd.c_str(), 0, "IPC-KQ3", -2},
        {"file /proc/net/emac_link eth0 nothing known", 0, "IPC-KQ3", -1},
        {"file /proc/net/emac_link eth0 Link State:", 0, "IPC-KQ3", -2},
        {"file /proc/net/emac_link eth1 Link State: UP", 0, "IPC-KQ3", -2},
        {"", 0, "IPC-KQ3", -2},
    };
    for (const LinkCase& c : cases) {
        SCOPED_TRACE(c.report);
        sim::load(c.report);
        EXPECT_EQ(mii_diag("eth0"), c.state);
    }
    snprintf(HWINFO.product_model, sizeof HWINFO.product_model, "IPC-KM3");
    HWINFO.video_interface = 5;
    sim::load((four_down + up).c_str());
    EXPECT_EQ(mii_diag("eth0"), 0) << "the fifth port of a multi-port board";
    sim::load((four_down + down + up).c_str());
    EXPECT_EQ(mii_diag("eth0"), -1) << "five ports are looked at";
    sim::load("file /proc/net/wireless eth2: 1 70 0");
    EXPECT_EQ(mii_diag("eth2"), 0);
    sim::load("file /proc/net/wireless eth2: 0 70 0");
    EXPECT_EQ(mii_diag("eth2"), -1);
    sim::load("file /proc/net/wireless eth2: none");
    EXPECT_EQ(mii_diag("eth2"), -2);
    EXPECT_TRUE(journal_follows({"out \"[libmarl] raw= none\\n\\n\"", "err \"sscanf\""}));
    EXPECT_EQ(mii_diag("ppp0"), 0);
    EXPECT_EQ(mii_diag("eth1"), -1);
}

TEST(Addresses, AsText) {
    EXPECT_EQ(NetStrToAddr("1.2.3.4"), 0x04030201U);
    EXPECT_EQ(NetStrToAddr("1-2 260"), 0x00040201U) << "any separator, the low 8 bits, missing fields are 0";
    EXPECT_EQ(NetStrToAddr(nullptr), 0U);
    const char* end = nullptr;
    EXPECT_EQ(NetStrToUL("0x1Fg", &end, 0), 31U);
    EXPECT_STREQ(end, "g");
    EXPECT_EQ(NetStrToUL("0x", &end, 0), 0U);
    EXPECT_STREQ(end, "x");
    EXPECT_EQ(NetStrToUL("0778", &end, 0), 63U);
    EXPECT_EQ(NetStrToUL("0Xff", nullptr, 16), 255U);
    EXPECT_EQ(NetStrToUL("4294967297", nullptr, 10), 1U);
    char text[16];
    NetIpToStr(0x04030201, text);
    EXPECT_STREQ(text, "1.2.3.4");
    EXPECT_EQ(NetIsBroadcast("10.0.0.255", "255.255.255.0"), 1);
    EXPECT_EQ(NetIsBroadcast("10.0.0.254", "255.255.255.0"), 0);
    EXPECT_EQ(NetIsBroadcast("255.255.255.255", nullptr), 1);
    EXPECT_EQ(NetIsBroadcast(nullptr, "255.255.255.255"), 1);
}

TEST(Identity, ResolverHostNameAndMac) {
    char first[16] = "kept";
    char second[16] = "kept";
    sim::load("env a=1");
    EXPECT_EQ(NetGetDNS(first, 16, second, 15), -1);
    EXPECT_EQ(NetGetDNS(first, 16, second, 16), 0);
    EXPECT_STREQ(first, second) << "the default server for both";
    EXPECT_EQ(NetSetDNS("10.0.0.1", nullptr), 0);
    EXPECT_EQ(file("/mnt/mtd/Config/resolv.conf"), "nameserver 10.0.0.1\n");
    snprintf(second, sizeof second, "kept");
    EXPECT_EQ(NetGetDNS(first, 16, second, 16), 0);
    EXPECT_STREQ(first, "10.0.0.1");
    EXPECT_STREQ(second, "kept");
    EXPECT_EQ(NetSetDNS(nullptr, nullptr), 0);
    EXPECT_EQ(file("/mnt/mtd/Config/resolv.conf"), "");
    sim::clear_journal();
    for (const char* name : {"a;reboot", "$(reboot)", "a b", "", "-F", "a\nb", "`x`"}) {
        EXPECT_EQ(NetSetHostName(name), -1) << name;
    }
    EXPECT_EQ(NetSetHostName(nullptr), -1);
    EXPECT_EQ(scenario::Journal(sim::journal()).count("command"), 0U) << "no shell is started";
    EXPECT_EQ(NetSetHostName("cam-1.example"), 0);
    EXPECT_EQ(NetSetHostName(std::string(100, 'n').c_str()), 0);
    EXPECT_TRUE(journal_follows(
        {"command \"hostname cam-1.example\"", "command \"hostname " + std::string(54, 'n') + "\""}));
    EXPECT_EQ(NetSetMAC("eth2", "00:11:22:33:44:55"), 0);
    char mac[32];
    EXPECT_EQ(get_armboot_para("ethaddr", mac, sizeof mac), 0);
    EXPECT_STREQ(mac, "00:11:22:33:44:55");
    EXPECT_EQ(NetSetMAC("ppp0", "00:11:22:33:44:55"), -1);
    EXPECT_EQ(NetSetMAC("eth0", nullptr), -1);
    EXPECT_TRUE(
        journal_follows({"err \"not found device ppp0\\n\"", "err \"pEthName or pEthMac is NULL\\n\""}));
}

}  // namespace
