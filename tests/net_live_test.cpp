// The running interfaces, on the real kernel: every test makes itself a network namespace with a veth pair in
// the place of each interface of the board.
#include <arpa/inet.h>
#include <libmarl.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sched.h>
#include <sys/socket.h>

#include <cstdio>

#include "daemon/eth_recovery.h"
#include "helpers/board.h"

namespace {

using namespace board;

// Runs ip(8) with these words; what it prints.
std::string ip(const std::string& words) {
    std::string output;
    FILE* const program = popen(("ip " + words).c_str(), "r");
    for (int c = 0; (c = fgetc(program)) != EOF;) output += static_cast<char>(c);
    EXPECT_EQ(pclose(program), 0) << "ip " << words;
    return output;
}

testing::AssertionResult shows(const std::string& words, const std::string& part) {
    const std::string shown = ip(words);
    return testing::AssertionResult(shown.find(part) != shown.npos) << shown;
}

constexpr int kIp = NET_ATTR_IP, kMask = NET_ATTR_NETMASK;

const std::string kStored =
    "file /mnt/mtd/Config/network HOSTIP = 10.0.0.2\nfile /mnt/mtd/Config/network SUBMASK = 255.255.255.0\n"
    "file /mnt/mtd/Config/network GATEWAYIP = 10.0.0.1\n"
    "file /mnt/mtd/Config/network2 HOSTIP = 10.2.0.2\n"
    "file /mnt/mtd/Config/network2 SUBMASK = 255.255.0.0\n";

class LiveNetwork : public testing::Test {
  protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNET) != 0) GTEST_SKIP() << "no network namespace of our own";
        for (const std::string name : {"eth0", "eth2"}) {
            ip("link add " + name + " address 02:00:00:00:00:0" + name.substr(3) +
               " type veth peer name peer" + name.substr(3));
            ip("link set peer" + name.substr(3) + " up");
        }
        sim::load(("network real\n" + kStored).c_str());
    }

    static void address_both() {
        ASSERT_EQ(Ints({SetEthAttr("eth0", kIp, "10.0.0.2"), SetEthAttr("eth0", kMask, "255.255.255.0"),
                        SetEthAttr("eth2", kIp, "10.2.0.2"), SetEthAttr("eth2", kMask, "255.255.0.0")}),
                  Ints(4, 0));
    }
};

// Listens for ARP at the far end of eth0.
int listen_at_far_end() {
    const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, htons(ETH_P_ARP));
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_protocol = htons(ETH_P_ARP);
    where.sll_ifindex = static_cast<int>(if_nametoindex("peer0"));
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&where), sizeof where), 0);
    return fd;
}

std::string next_frame(int fd) {
    char frame[256];
    const ssize_t n = recv(fd, frame, sizeof frame, 0);
    return n > 0 ? std::string(frame, static_cast<size_t>(n)) : std::string();
}

TEST_F(LiveNetwork, AddressNetmaskFlagsAndMtu) {
    address_both();
    EXPECT_TRUE(shows("addr show dev eth0", "inet 10.0.0.2/24"));
    EXPECT_TRUE(shows("link show dev eth0", ",UP"));
    int mtu = 0;
    EXPECT_EQ(Ints({NetSetMTU("eth0", 1400), NetGetMTU("eth0", &mtu), mtu}), Ints({0, 0, 1400}));
    EXPECT_TRUE(shows("link show dev eth0", "mtu 1400"));
    sim::clear_journal();
    EXPECT_EQ(Ints({NetSetMTU("eth0", 1501), SetEthAttr("eth0", 7, "10.0.0.2")}), Ints(2, -1));
    EXPECT_EQ(count("socket"), 0U);
    EXPECT_EQ(Ints({SetEthAttr("eth0", kIp, "255.255.255.255"), SetEthAttr("eth0", kIp, "x")}), Ints(2, -1));
    EXPECT_EQ(count("socket ioctl"), 0U);
    EXPECT_TRUE(journal_follows({"out \"\\e[0;32;31m[libmarl] ERROR (src/net/net|SetEthAttr|"}));
    ip("link set eth0 promisc on");
    EXPECT_EQ(Ints({NetSetMTU("eth0", 1500), ResetNetCard("eth0")}), Ints(2, 0));
    EXPECT_TRUE(shows("link show dev eth0", "PROMISC,UP"));
    EXPECT_EQ(sentrel::SetEthUpDown("eth0", "down"), 0);
    EXPECT_FALSE(shows("link show dev eth0", ",UP"));
    EXPECT_EQ(Ints({sentrel::SetEthUpDown("eth0", "up"), sentrel::SetEthUpDown("eth0", "reset"),
                    sentrel::SetEthUpDown("eth0", nullptr)}),
              Ints({0, -1, -1}));
    EXPECT_TRUE(shows("link show dev eth0", "PROMISC,UP"));
    EXPECT_TRUE(journal_follows({"out \"[libmarl] eth0 down\\n\"", "out \"[libmarl] eth0 up\\n\"",
                                 "out \"\\e[0;32;31m[libmarl] ERROR (sentrel|SetEthUpDown|"}));
    char mac[18];
    EXPECT_EQ(Ints({get_device_id(mac, sizeof mac), NetGetMAC("eth0", mac, sizeof mac)}), Ints(2, 0));
    EXPECT_STREQ(mac, "02:00:00:00:00:00");
    EXPECT_EQ(Ints({NetGetMAC("eth0", mac, 1), NetGetMAC("eth2", mac, 10), NetGetMAC("ppp0", mac, sizeof mac),
                    NetGetMAC("eth0", nullptr, sizeof mac), NetGetMAC("eth0", mac, 0)}),
              Ints({0, 0, -1, -1, -1}));
    EXPECT_STREQ(mac, "02:00:00:");
    EXPECT_TRUE(journal_follows({"err \"SIOCGIFHWADDR,ppp0\\n\""}));
}

TEST_F(LiveNetwork, OneDefaultRouteOnly) {
    address_both();
    ip("route add default via 10.2.0.1 dev eth2");
    ip("route add default via 10.0.0.9 dev eth0 metric 5");
    EXPECT_EQ(SetGateWay("eth0", "10.0.0.1"), 0);
    EXPECT_EQ(ip("route show default"), "default via 10.0.0.1 dev eth0 \n");
    EXPECT_EQ(SetGateWay("eth0", "10.9.0.1"), -1);
    EXPECT_TRUE(journal_follows({"out \"[libmarl] Gateway and ip are in different subnet\\n\""}));
    EXPECT_EQ(ip("route show default"), "default via 10.0.0.1 dev eth0 \n") << "nothing has changed";
    EXPECT_EQ(SetGateWay("eth2", "10.2.0.77"), 0);
    EXPECT_EQ(ip("route show default"), "default via 10.2.0.77 dev eth2 \n");
    ip("link add ppp0 type veth peer name far");
    ip("link set far up");
    ip("link set ppp0 up");
    EXPECT_EQ(NetApplyGateway("ppp0", ""), 0);
    EXPECT_EQ(ip("route show default"), "default dev ppp0 scope link \n");
    EXPECT_EQ(SetGateWay("eth0", "10.0.0.1"), 0);
    EXPECT_EQ(ip("route show default"), "default via 10.0.0.1 dev eth0 \ndefault dev ppp0 scope link \n")
        << "ppp0 is none of the board's interfaces";
    ip("link del eth2");
    EXPECT_EQ(Ints({SetGateWay("eth0", "10.0.0.1"), NetApplyIpMask("eth0", "10.2.0.9", "255.255.0.0")}),
              Ints(2, 0));
}

TEST_F(LiveNetwork, AnAppliedAddressIsSavedAndAnnouncedInOneFrame) {
    const int far_end = listen_at_far_end();
    EXPECT_EQ(NetApplyIpMask("eth0", "10.0.0.5", "255.255.255.0"), 0);
    const std::string mac("\x02\x00\x00\x00\x00\x00", 6);
    const std::string ip_bytes("\x0a\x00\x00\x05", 4);
    const std::string wanted = std::string(6, '\xFF') + mac +
                               std::string("\x08\x06\x00\x01\x08\x00\x06\x04\x00\x02", 10) + mac + ip_bytes +
                               std::string(6, '\0') + ip_bytes + std::string(18, '\0');
    EXPECT_EQ(next_frame(far_end), wanted);
    EXPECT_EQ(next_frame(far_end), "") << "one frame only";
    EXPECT_TRUE(shows("addr show dev eth0", "inet 10.0.0.5/24"));
    EXPECT_EQ(NetApplyEth0Gateway("10.0.0.7"), 0);
    EXPECT_EQ(ip("route show default"), "default via 10.0.0.7 dev eth0 \n");
    char host[16], mask[16], router[16], nic[MARL_NET_NAME_SIZE];
    EXPECT_EQ(Ints({NetGetEth0IpMask(host, 16, mask, 16), NetGetEth0Gateway(router, 16),
                    NetSetDefaultEth("eth2"), NetGetDefaultEth(nic)}),
              Ints(4, 0));
    EXPECT_EQ(Strings({host, mask, router, nic}), Strings({"10.0.0.5", "255.255.255.0", "10.0.0.7", "eth2"}));
    sim::clear_journal();
    // In the other's subnet, a broadcast address, or what cannot be stored.
    EXPECT_EQ(
        Ints({NetApplyIpMask("eth0", "10.2.0.9", "255.255.0.0"), NetApplyIpMask("eth2", "10.0.0.9", mask),
              NetApplyIpMask("eth0", "10.0.0.255", mask), NetApplyEth0IpMask("10.0.0.255", mask),
              NetApplyEth0IpMask("10.0.0.9\n", mask), NetApplyEth0IpMask("10.0.0.9", nullptr)}),
        Ints(6, -1));
    EXPECT_EQ(count("socket"), 0U);
    EXPECT_EQ(Ints({NetApplyIpMask("eth0", "x", mask), NetApplyIpMask("lo", "127.0.0.1", "255.0.0.0"),
                    NetSendarp("wlan0"), NetApplyEth0IpMask("10.0.0.9", mask), counts({"socket sendto"})[0]}),
              Ints({-1, 0, -1, 0, 1}));
}

TEST_F(LiveNetwork, EveryFailingRequestIsReportedAndLeavesNoSocket) {
    address_both();
    const auto set_ip = [] { return SetEthAttr("eth0", kIp, "10.0.0.2"); };
    const auto set_gateway = [] { return SetGateWay("eth0", "10.0.0.1"); };

    static char text[18];
    const auto mac = [] { return NetGetMAC("eth0", text, sizeof text); };
    const auto announce = [] { return NetSendarp("eth0"); };
    const auto send_frame = [] { return NetSendArpFrame("eth0", 0, reinterpret_cast<uint8_t*>(text)); };
    const auto up = [] { return sentrel::SetEthUpDown("eth0", "up"); };
    const std::string no_gateway = "out \"\\e[0;32;31m[libmarl] ERROR (src/net/net|SetGateWay|";
    const struct {
        const char* fault;
        int (*operation)();
        std::string message;
        int result = -1;
    } cases[] = {
        {"socket open 1 EMFILE", set_ip, "err \"socket: Too many open files\\n\""},
        {"socket ioctl:0x8916 1 EPERM", set_ip, "err \"set ip error\\n\""},
        {"socket ioctl:0x8913 1 EIO", set_ip, "err \"SIOCGIFFLAGS\""},
        {"socket ioctl:0x8914 1 EIO", set_ip, "err \"SIOCSIFFLAGS\""},
        {"socket open 1 EMFILE", set_gateway, no_gateway},
        {"socket ioctl:0x890b 1 EPERM", set_gateway, no_gateway},
        {"socket ioctl:0x8914 2 EIO", [] { return ResetNetCard("eth0"); },
         "err \"SIOCSIFFLAGS: Input/output error\\n\""},
        {"socket ioctl:0x8922 1 EPERM", [] { return NetSetMTU("eth0", 1400); },
         "err \"ioctl SIOCSIFMTU error: Operation not permitted\\n\""},
        {"socket sendto 1 ENETDOWN", announce, "err \"sendto arp wrong\"", 0},
        {"socket sendto 1 ENETDOWN", send_frame, "err \"sendto arp wrong\""},
        {"socket setsockopt 1 EIO", send_frame, "err \"setsockopt"},
        {"socket open 1 EMFILE", send_frame, "err \"SOCK_PACKET"},
        {"/mnt/mtd/Config/network open 1+ EACCES", announce, "err \"get ip error\\n\""},
        {"socket ioctl:0x8927 1 EIO", announce, "err \"Can not get host MAC\\n\""},
        {"socket open 1 EMFILE", up, "err \"socket: Too many open files\\n\""},
        {"socket ioctl:0x8927 1 EIO", mac, "err \"SIOCGIFHWADDR,eth0\\n\""},
        {"socket open 1 EMFILE", mac, "err \"socket\\n\""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        sim::load(("network real\n" + kStored + "fault " + c.fault).c_str());
        EXPECT_EQ(c.operation(), c.result);
        EXPECT_TRUE(journal_follows({c.message}));
        const scenario::Journal journal(sim::journal());
        const bool opened = std::string(c.fault).find("open") == std::string::npos;
        EXPECT_GE(journal.count("socket close"), opened ? 1U : 0U) << journal.text();
    }
}

const std::string kFailingMac =
    "network real\nenv HWID=IPC-KN1E:1:2:0:a:6\nfile /proc/qorzo/bootpara qz_keyboard:2\n"
    "file! /proc/net/emac_stats DEMAC Error               : 3\\n\n" +
    kStored;

TEST_F(LiveNetwork, ALastingMacErrorRestartsEth0AndRestoresItsRoute) {
    address_both();
    const int far_end = listen_at_far_end();
    const auto run = scenario::run_sentrel(kFailingMac, 30);
    EXPECT_TRUE(run.journal.follows(
        at(5.2, {"/proc/net/emac_stats open r"}) + at(9.2, {"command \"ifconfig eth0 down\""}) +
        at(11.2, {"command \"ifconfig eth0 up\""}) +
        at(13.2, {"socket ioctl 0x890b", "out \"[libmarl] set success\\n\"", "socket sendto 60",
                  "out \"==>net helper: restart eth0,state=3,cnt=0,default gw=10.0.0.1\\n\""}) +
        at(22.4, {"command \"ifconfig eth0 down\""}) +
        at(26.4, {"out \"==>net helper: restart eth0,state=3,cnt=1,default gw=10.0.0.1\\n\""})));
    EXPECT_EQ(ip("route show default"), "default via 10.0.0.1 dev eth0 \n");
    EXPECT_EQ(next_frame(far_end).size(), 60U);
}

}  // namespace
