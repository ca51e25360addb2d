// The network store, the interfaces as /proc shows them, and the texts around them.
#include <libmarl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "helpers/board.h"

// Shows in the journal.
extern "C" int fsync(int descriptor) {
    return write(STDOUT_FILENO, "durable", 7) < 0 ? -1 : board::behind(fsync, "fsync")(descriptor);
}

namespace {

using namespace board;

const std::string kMain = "/mnt/mtd/Config/network";
const std::string kBackup = "/mnt/backup/Config/network";
const std::string kResolver = "/mnt/mtd/Config/resolv.conf";
constexpr int kIp = NET_ATTR_IP, kMask = NET_ATTR_NETMASK, kGateway = NET_ATTR_GATEWAY, kPrio = NET_ATTR_PRIO;

std::string line(const std::string& text, const std::string& path = kMain) {
    return "file " + path + " " + text + "\n";
}

TEST(Store, ReadsTheFirstCopyThatThereIs) {
    const Strings initialised = {"out \"[libmarl] var=0\\n\"", "/dev/misc/rtc write 3: 28 aa 55",
                                 "/dev/misc/rtc write 5: 2c c0 a8 01 6c",
                                 "/dev/misc/rtc write 5: 30 ff ff ff 00",
                                 "/dev/misc/rtc write 5: 34 c0 a8 01 01"};
    const std::string ours = line("HOSTIP = 10.9.9.9", kBackup);
    const std::string dhcp = line("USEDHCP = 1") + line("DHCPIP = 172.16.0.9") + line("HOSTIP = 10.1.2.3");
    const std::string leased = dhcp + line("DHCPHAVEIP = 1");
    // The end of the piece that could be read is in the middle of the address.
    const std::string unread = line(std::string(240, '#')) + line("HOSTIP = 10.111.222.33") + ours +
                               "fault " + kMain + " read 2 EIO\nfault " + kMain + " read 4+ EIO\n";
    const std::string valid = "cmos 40 aa 55\n", invalid = "cmos 40 34 12\n";
    const Strings is_invalid = {"out \"[libmarl] var=0x1234\\n\""};
    const struct {
        const char* name;
        int type;
        std::string value, board;
        Strings events = {};  // that the read leaves behind, in this order
        int result = 0;
    } cases[] = {
        {"lo", kMask, "255.0.0.0", line("SUBMASK = 255.0.0.0")},
        {"eth0", kIp, "10.9.9.9", line("PRIO = 1") + ours},
        {"eth0", kIp, "10.1.2.3", line("# HOSTIP old") + line("HOSTIP=1.1.1.1") + line("HOSTIP =10.1.2.3")},
        {"eth0", kIp, "HOSTIP", line("NOTE = HOSTIP")},
        {"eth0", kIp, "123456789012345", line("HOSTIP = 1234567890123456789")},
        {"eth0", kIp, "172.16.0.9", leased},
        {"eth2", kIp, "10.9.8.7", line("DHCPHAVEIP = 1\\nUSEDHCP = 1\\nDHCPIP = 10.9.8.7", kMain + "2")},
        {"eth0", kIp, "10.1.2.3", line("DHCPHAVEIP = 1\\nDHCPIP = 10.9.8.7\\nHOSTIP = 10.1.2.3")},
        {"eth0", kIp, "10.1.2.3", dhcp, {"err \"can not get IP by DHCP, use IP save in NETWORK\\n\""}},
        {"eth0", kPrio, "1", leased + line("PRIO = 1"), {"err \"unkonw type\\n\""}},
        // No file: the bytes of the CMOS, or the defaults.
        {"eth0", kGateway, "192.168.1.1", "", initialised},
        {"eth0", kIp, "10.11.12.13", valid + "cmos 44 0a 0b 0c 0d\n"},
        {"eth0", kMask, "255.255.255.0", valid},
        {"eth0", kIp, "192.168.1.108", invalid, is_invalid, -1},
        {"eth0", kPrio, "0", ""},
        {"eth2", kIp, "192.168.2.108", valid + "cmos 44 0a 0b 0c 0d\n"},
        {"eth2", kIp, "192.168.1.108", valid + "cmos 44 c0 a8 02 6c\n"},
        {"eth2", kIp, "192.168.1.108", valid},
        {"eth2", kIp, "192.168.2.108", invalid, is_invalid},
        {"eth2", kIp, "192.168.2.108", "fault /dev/misc/rtc read 1 EIO\n", {}, -1},
        {"ppp0", kMask, "255.255.0.0", ""},
        {"ppp0", kMask, "", "fault /proc/net/dev read 1 EIO", {"err \"NetGetEthName\\n\""}, -1},
        // For a file that cannot be read its backup stands in, but no default: the file may have the value.
        {"eth0", kIp, "10.9.9.9", unread},
        {"ppp0", kIp, "", line("A", kMain + "ppp0") + "fault " + kMain + "ppp0 read 1 EIO", {}, -1},
        {"eth0",
         kMask,
         "",
         leased + "fault " + kMain + " read 1 EIO",
         {"err \"open failed for SUBMASK\""},
         -1},
        {"eth0", kIp, "10.1.2.3", leased + ours + "fault " + kMain + " open 1 EACCES\n"},
        {"wlan0", kIp, "", "", {"err \"Not support device wlan0\\n\""}, -1},
        {"eth0", 4, "", "", {"err \"Type:4 error\\n\""}, -1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name + std::string(" ") + c.value + " on\n" + c.board);
        load("file /proc/net/dev eth0: 0\n" + c.board);
        char value[MARL_NET_VALUE_SIZE] = {};
        EXPECT_EQ(GetEthAttr(c.name, c.type, value, sizeof value), c.result);
        EXPECT_EQ(value, c.value);
        EXPECT_TRUE(journal_follows(c.events));
        EXPECT_EQ(count("/dev/misc/rtc write"), c.events == initialised ? 4U : 0U);
    }
    load(leased);
    char room[16] = "x";
    EXPECT_EQ(
        Ints({GetEthAttr("eth0", kIp, room, 15), NetGetDhcpAttr(kMain.c_str(), kIp, room, 15),
              GetEthAttr(nullptr, kIp, room, 16), NetGetDhcpAttr(kMain.c_str(), kIp, nullptr, 16),
              NetGetGateway("eth0", room, 0), room[0], NetGetGateway("eth0", room, 1), room[0],
              NetGetDhcpAttr(kMain.c_str(), kPrio, room, 16), NetGetDhcpAttr(kMain.c_str(), kIp, room, 16)}),
        Ints({-1, -1, -1, -1, -1, 'x', -1, 0, -1, 0}));
    EXPECT_TRUE(journal_follows({"err \"str_length too short\\n\"", "err \"str_length is too short\\n\"",
                                 "err \"GetEthAttr :pEthName==NULL\""}));
}

TEST(Store, SavesFilesInOneWriteAndTheCmosCopy) {
    load(line("USEDHCP = 0") + line("HOSTIP = 10.1.22.3") + "file! " + kBackup + " PRIO = 0");
    EXPECT_EQ(SaveEthAttr("eth0", kIp, "10.7.7.7"), 0);
    EXPECT_EQ(read_file(kMain), "USEDHCP = 0\nHOSTIP = 10.7.7.7\n");
    EXPECT_EQ(read_file(kBackup), "PRIO = 0\nHOSTIP = 10.7.7.7\n");
    EXPECT_TRUE(
        journal_follows({kMain + " open rw", kMain + " write 31", kMain + " ftruncate 30", "out \"durable",
                         kBackup + " open rw", kBackup + " write 19", kBackup + " write 27", "out \"durable",
                         "/dev/misc/rtc write 3: 28 aa 55", "/dev/misc/rtc write 5: 2c 0a 07 07 07"}));
    sim::clear_journal();
    EXPECT_EQ(Ints({SaveEthAttr("eth0", kPrio, "1"), SaveEthAttr("eth2", kGateway, "10.2.0.1"),
                    SaveEthAttr("eth0", kIp, nullptr)}),
              Ints(3, 0));
    for (const auto& path : {kMain, kBackup})
        EXPECT_EQ(read_file(path + "2"), "GATEWAYIP = 10.2.0.1\n = = \n");
    EXPECT_EQ(count("/dev/misc/rtc"), 0U);
    // The medium fails, and the CMOS; there is no space for a longer text.
    run("fault " + kMain + " fsync 1 EIO\nfault /dev/misc/rtc write 1 EIO\nfile /tmp/a K = 1\n" +
        "fault /tmp/a write 1 short 1\nfault /tmp/a write 2 ENOSPC");
    EXPECT_EQ(Ints({SaveEthAttr("eth0", kGateway, "10.7.7.1"), NetConfigWriteKey("/tmp/a", "K", "100")}),
              Ints(2, -1));
    EXPECT_EQ(read_file(kMain) + read_file("/tmp/a"), "USEDHCP = 0\nHOSTIP = 10.7.7.7\nPRIO = 1\nK = 1\n");
    EXPECT_EQ(count("out \"durable"), 7U) << "what is put back, too";
}

TEST(Store, NamesItsFilesAndKeys) {
    char name[32];
    load(line("HOSTIP = 10.1.2.3") + "fault " + kMain + " read 1 EIO");
    EXPECT_EQ(Ints({NetConfigWriteKey("/mnt/none/file", "K", "1"), NetConfigWriteKey(kMain.c_str(), "L", "1"),
                    NetConfigFileName(3, name, 27), NetConfigFileName(0, name, 24),
                    NetConfigFileName(1, name, 32), NetAttrKeyName(0, name, 9), NetAttrKeyName(4, name, 10)}),
              Ints(7, -1));
    EXPECT_TRUE(journal_follows({"err \"open failed for K\"", "err \"open failed for L\"",
                                 "err \"FileName[24] is too short,least is 25\"", "err \"EthIndex=1!\\n\"",
                                 "err \"Len:9 is too short\\n\""}));
    EXPECT_EQ(Ints({NetConfigWriteKey("/mnt/mtd/new", "K", "1"), NetConfigFileName(0, name, 25),
                    NetAttrKeyName(0, name, 10), NetConfigFileName(3, name, 28)}),
              Ints(4, 0));
    EXPECT_STREQ(name, "/mnt/mtd/Config/networkppp0");
}

TEST(Store, MakesFilesThatOnlyTheirOwnerChanges) {
    load("");
    umask(0);
    EXPECT_EQ(Ints({NetSetDNS("10.0.0.1", nullptr), set_upgrade_map()}), Ints(2, 0));
    using std::filesystem::perms, std::filesystem::status;
    EXPECT_EQ(status(path_of(kResolver)).permissions(), perms{0644});
    EXPECT_EQ(status(path_of("/tmp/upgrade_ing")).permissions(), perms{0777}) << "anybody's";
}

TEST(Store, KnowsAFactoryReset) {
    const char* const power_lost = "out \"\\e[1;33m[libmarl] WARN (src/net/net|NetConfigBeenReset|";
    const struct {
        std::string board;
        Ints results;
        Strings events;
    } cases[] = {
        {"cmos 42 66", {1, 0}, {"/dev/misc/rtc read 1: 66"}},
        {"cmos 42 ff",
         {1},
         {power_lost, "/dev/misc/rtc write 2: 2a 00", "out \"[libmarl] [LIBMARL]: May be"}},
        {"cmos 42 ff\n" + line("HOSTIP = 10.0.0.1"), {0}, {power_lost, power_lost}},
        {"cmos 42 ff\n" + line("HOSTIP = 10.0.0.1", kBackup), {0}, {power_lost, power_lost}},
        {"missing /dev/misc/rtc\nfault /dev/misc/rtc read 1+ EIO", {-1}, {"err \"ERR: Get CMOS Failed\\n\""}},
    };
    for (const auto& c : cases) {
        load(c.board);
        for (const int result : c.results) EXPECT_EQ(NetConfigBeenReset(), result) << c.board;
        EXPECT_TRUE(journal_follows(c.events));
    }
}

TEST(Interfaces, AsTheKernelListsThem) {
    NetDeviceEntry found[MARL_NET_DEVICES_MAX];
    char names[32];
    int number = 0;
    const auto names_in = [&](int size) {  // the result, the names and how many there are
        const int result = NetGetEthName(names, size, &number);
        return Strings({std::to_string(result), names, std::to_string(number)});
    };
    load("");
    EXPECT_EQ(NetGetEthDevice(found, 10), 1);
    EXPECT_STREQ(found[0].name, "eth0");
    EXPECT_EQ(names_in(32), Strings({"0", "eth0", "1"}));
    sim::run("file /proc/net/dev  lo: 0");
    EXPECT_EQ(names_in(32), Strings({"0", "eth0::", "1"}));
    EXPECT_EQ(Ints({NetGetDefaultEth(names), NetSetDefaultEth("lo")}), Ints(2, 0));
    run("fault " + kMain + " read 1+ EIO\nfault " + kBackup + " read 1+ EIO");
    EXPECT_EQ(Ints({NetGetDefaultEth(names), seen("err \"get ip error\\n\"")}), Ints({-1, 1}));
    sim::run(
        "fault none\nfile! /proc/net/dev Inter-|   Receive\\n\nfile /proc/net/dev     lo:  1 1 0 0 0 0 0 0 1 "
        "1\n"
        "file /proc/net/dev   eth0:11 12 0 0 0 0 0 0 13 14 0\nfile /proc/net/dev   eth1: 0\n"
        "file /proc/net/dev   eth2: 18446744073709551615 22 1 2 3 4 5 6 23 24\nfile /proc/net/dev   ppp0: 1 "
        "2 3\nfile /proc/net/dev eth10: 0");
    EXPECT_EQ(Ints({NetGetEthDevice(found, 10), found[2].wireless, found[0].wireless}), Ints({3, 1, 0}));
    EXPECT_STREQ(found[2].name, "eth2");
    EXPECT_EQ(Ints({NetGetEthDevice(found, 1), NetGetEthDevice(found, 0), NetGetEthDevice(found, 11),
                    NetGetEthDevice(nullptr, 1), NetGetDeviceState("eth0", nullptr)}),
              Ints({1, -1, -1, -1, -1}));
    EXPECT_EQ(names_in(32), Strings({"0", "eth0::eth2::ppp0::eth10::", "4"}));
    EXPECT_EQ(names_in(13), Strings({"0", "eth0::eth2::", "2"})) << "as many as fit whole";
    EXPECT_EQ(names_in(9)[0], "-1");
    NetDeviceStats stats{};
    EXPECT_EQ(NetGetDeviceState("eth2", &stats), 2);
    EXPECT_EQ(stats.rx_bytes, UINT64_MAX);
    EXPECT_EQ(stats.rx_packets * 10000 + stats.tx_bytes * 100 + stats.tx_packets, 222324U);
    EXPECT_EQ(Ints({NetGetDeviceState("eth0", &stats), NetGetDeviceState("ppp0", &stats)}), Ints({0, -1}));
    EXPECT_EQ(stats.rx_bytes, 11U) << "but of ppp0 columns are missing";
    EXPECT_EQ(Ints({NetGetDefaultEth(names), NetSetDefaultEth("eth2")}), Ints(2, 0));
    EXPECT_STREQ(names, "eth1");
    EXPECT_EQ(read_file(kMain) + read_file(kMain + "2"), "PRIO = 1\n = = \nPRIO = 0\n = = \n");
    EXPECT_EQ(Ints({NetSetDefaultEth("eth0"), NetGetDefaultEth(names), NetSetDefaultEth("eth1")}),
              Ints({0, 0, -1}));
    EXPECT_STREQ(names, "eth0");
    EXPECT_EQ(count("out \"\\e[0;32;31m[libmarl] ERROR (src/net/net|NetGetEthName|"), 2U);
    load(
        "file /proc/net/dev eth0: 0\nfault /proc/net/dev read 2+ EIO\n"
        "file /proc/net/emac_link eth0 Link State: UP\nfault /proc/net/emac_link read 2 EIO");
    EXPECT_EQ(Ints({NetGetEthDevice(found, 10), mii_diag("eth0"), NetGetDefaultEth(names),
                    NetSetDefaultEth("eth0")}),
              Ints({-1, -2, -1, -1}));
    EXPECT_EQ(names_in(32), Strings({"-1", "", "0"})) << "a part of a list is no list";
    EXPECT_TRUE(
        journal_follows({"err \"open /proc/net/dev failed\\n\"", "err \"open /proc/net/emac_link failed\\n\"",
                         "err \"NetGetEthName\\n\"", "err \"NetGetEthName\\n\"",
                         "out \"\\e[0;32;31m[libmarl] ERROR (src/net/net|NetGetEthName|"}));
}

TEST(Interfaces, LinkState) {
    const auto states = [](const char* device, const Strings& reports) {
        Ints results;
        for (const std::string& report : reports) {
            load(report);
            results.push_back(mii_diag(device));
        }
        return results;
    };
    const std::string link = "file /proc/net/emac_link ", wireless = "file /proc/net/wireless eth2: ";
    const std::string up = link + "eth0 port Link State: UP\n", down = link + "eth0 port Link State: DOWN\n";
    strcpy(HWINFO.product_model, "IPC-KQ3");
    EXPECT_EQ(states("eth0", {up, down, link + "eth0 port Link State: RESET", link + "eth0 nothing known",
                              link + "eth0 Link State:", link + "eth1 Link State: UP", ""}),
              Ints({0, -1, -2, -1, -2, -2, -2}));
    EXPECT_EQ(Ints({mii_diag("ppp0"), mii_diag("eth1")}), Ints({0, -1}));
    EXPECT_EQ(states("eth2", {wireless + "2 70 0", wireless + "0 70 0", wireless + "1", wireless + "none"}),
              Ints({0, -1, 0, -2}));
    EXPECT_EQ(Ints({NetWirelessPresent("eth2"), NetWirelessPresent("eth3")}), Ints({0, -1}));
    EXPECT_TRUE(journal_follows({"out \"[libmarl] raw= none\\n\\n\"", "err \"sscanf\""}));
    strcpy(HWINFO.product_model, "IPC-KM3");
    const std::string four = down + down + down + down;
    for (const auto& [video, net] : {std::pair<uint16_t, uint16_t>(5, 0), {0, 3}, {0, 0}}) {
        HWINFO.video_interface = video, HWINFO.net_interface = net;
        EXPECT_EQ(states("eth0", {four + up, four + down + up}), Ints({video + net > 0 ? 0 : -1, -1}));
    }
}

TEST(Addresses, AsText) {
    EXPECT_EQ(NetStrToAddr("1.2.3.4.8"), 0x04030201U);
    EXPECT_EQ(NetStrToAddr("1:2 260\0009"), 0x40201U) << "any separator, low 8 bits, missing fields are 0";
    const auto number = [](const char* text, uint32_t base) {  // and what follows it
        const char* end = nullptr;
        const uint32_t value = NetStrToUL(text, &end, base);
        return std::to_string(value) + " " + end;
    };
    EXPECT_EQ(Strings({number("0x1Fg", 0), number("0x", 0), number("0778", 0), number("0Xff", 16),
                       number("4294967297", 10), number("19a", 0)}),
              Strings({"31 g", "0 x", "63 8", "255 ", "1 ", "19 a"}));
    EXPECT_EQ(
        Ints({NetIsBroadcast("10.0.0.255", "255.255.255.0"), NetIsBroadcast("10.0.0.254", "255.255.255.0"),
              NetIsBroadcast("255.255.255.255", nullptr), NetIsBroadcast(nullptr, "255.255.255.255")}),
        Ints({1, 0, 1, 1}));
    EXPECT_TRUE(journal_follows({"out \"[libmarl] The ip 10.0.0.255 is broadcast addr\\n\"",
                                 "out \"[libmarl] The ip  is broadcast addr\\n\""}));
}

TEST(Identity, ResolverHostNameAndMac) {
    char first[32] = "kept", second[16] = "kept";
    load("env a=1\nfault " + kResolver + " open 3 ENOSPC\nfault " + kResolver + " open 6 EACCES");
    EXPECT_EQ(Ints({NetGetDNS(first, 16, second, 15), NetGetDNS(first, 16, second, 16)}), Ints({-1, 0}));
    EXPECT_EQ(Strings({first, second}), Strings(2, "8.8.8.8"));
    snprintf(second, sizeof second, "kept");
    EXPECT_EQ(Ints({NetSetDNS("10.0.0.1", nullptr), NetSetDNS("10.0.0.1", nullptr),
                    NetSetDNS("10.0.0.2", nullptr), NetGetDNS(first, 16, second, 16)}),
              Ints({-1, 0, -1, 0}));
    EXPECT_EQ(read_file(kResolver), "nameserver 10.0.0.1\n");
    EXPECT_EQ(Strings({first, second}), Strings({"10.0.0.1", "kept"}));
    EXPECT_EQ(Ints({NetSetMAC("eth0", "0:0"), NetSetMAC("eth2", "00:11:22:33:44:55"),
                    get_armboot_para("ethaddr", first, sizeof first)}),
              Ints(3, 0));
    EXPECT_STREQ(first, "00:11:22:33:44:55");
    EXPECT_EQ(Ints({NetSetMAC("ppp0", "00:11:22:33:44:55"), NetSetMAC("eth0", nullptr)}), Ints(2, -1));
    EXPECT_TRUE(journal_follows({"err \"iPlen = 16\\n\"", "err \"fopen resolv.conf: No space",
                                 "err \"fopen resolv.conf: Permission", "err \"not found device ppp0\\n\"",
                                 "err \"pEthName or pEthMac is NULL\\n\""}));
}

}  // namespace
