// What other processes and threads do at the same time, and to the names in /tmp, which are anybody's.
#include <libmarl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <random>
#include <thread>

#include "helpers/board.h"

namespace {

using namespace board;
namespace fs = std::filesystem;

const std::string kFlag = "/tmp/upgrade_ing", kMediaGuard = "/tmp/mediaguard_to_sentrel",
                  kEncode = "/tmp/encode_to_sentrel", kNetwork = "/mnt/mtd/Config/network2";

// What stands in the place of each file before the daemon starts, and when the stall of a process whose own file is in
// order resets the board. A flag that is there and cannot be opened counts as an upgrade: its stall is told, no more.
TEST(Neighbours, CannotStopTheSupervision) {
    const std::pair<const char*, void (*)(const std::string&)> intruders[] = {
        {"link", [](const std::string& path) { fs::create_symlink("../precious", path); }},
        {"link to a device", [](const std::string& path) { fs::create_symlink("/dev/zero", path); }},
        {"FIFO", [](const std::string& path) { EXPECT_EQ(mkfifo(path.c_str(), 0777), 0); }},
        {"directory", [](const std::string& path) { fs::create_directories(path + "/full"); }},
        {"sparse", [](const std::string& path) { std::ofstream{path}, fs::resize_file(path, 1ULL << 40); }}};
    const std::string encode_stalls = "beat " + kEncode + " every 1 until 60\n";
    const std::pair<std::string, std::string> places[] = {{kFlag, kEncodeBeats + kMediaGuardStalls},
                                                          {kMediaGuard, encode_stalls},
                                                          {kEncode, kMediaGuardStalls}};
    for (const auto& [path, beats] : places) {
        for (const auto& [what, make] : intruders) {
            SCOPED_TRACE(path + " is a " + what);
            const scenario::BoardDirectory board;
            std::ofstream(board.path() + "/precious") << "precious";
            fs::create_directory(board.path() + "/tmp");
            make(board.path() + path);
            const auto run = scenario::run_sentrel(kTraffic + beats, 120, {.root = board.path()});
            const bool sparse = what == std::string("sparse"), held = path == kFlag && !sparse;
            // A MediaGuard that is a regular file and stays 0 is a stall of its own.
            const double reset = held ? -1 : path == kMediaGuard && sparse ? 32.42 : 84.42;
            EXPECT_NEAR(run.journal.time_of("board reset gpio35"), reset, 0.002) << run.journal.text();
            EXPECT_EQ(run.status, held ? 0 : kBoardReset);
            EXPECT_GE(run.journal.count("out \"upgrade is on, skip--\\n\""), held ? 5U : 0U);
            EXPECT_EQ(board.read("/precious"), "precious");
            const auto uses = counts({path + " open", path + " close"}, run.journal);
            EXPECT_TRUE(what != std::string("FIFO") || uses[0] == uses[1]) << run.journal.text();
        }
    }
}

// Signals at any moment, stops included, change nothing of what the daemon does.
TEST(Neighbours, MaySendSignals) {
    const std::string script = kTraffic + kEncodeBeats + kMediaGuardStalls;
    // By a shell, because this process is on the board, where nothing is sent. It ends with whom it sends to.
    const auto storm = [] {
        const std::string group = std::to_string(getpid());
        setpgid(0, 0);
        if (fork() != 0) return;
        setpgid(0, 0);
        constexpr const char* kStorm =
            "while for s in CHLD STOP CONT WINCH URG; do kill -s $s -- -$0 || exit; done; do :; done";
        execlp("sh", "sh", "-c", kStorm, group.c_str(), nullptr);
        _exit(127);
    };
    const auto calm = scenario::run_sentrel(script, 100);
    const auto stormy = scenario::run_sentrel(script, 100, {.streams = storm});
    EXPECT_EQ(stormy.status, calm.status);
    EXPECT_EQ(counts({kEncode + " open", kFlag + " mmap"}, calm.journal), Ints(2, 1)) << "kept open";
    EXPECT_EQ(stormy.journal.text(), calm.journal.text());
}

const Strings kAddresses = {"10.0.0.1", "192.168.100.200"};

bool reads_a_saved_address() {
    char address[MARL_NET_VALUE_SIZE] = {};
    return GetEthAttr("eth2", NET_ATTR_IP, address, sizeof address) == 0 &&
           std::find(kAddresses.begin(), kAddresses.end(), address) != kAddresses.end();
}

// A call that is safe from any thread, and whether it did what it should beside the others.
using Call = bool (*)(int round);
constexpr Call kSafeCalls[] = {
    [](int) { return reads_a_saved_address(); },
    [](int) { return check_upgrade_map() >= 0; },
    [](int round) { return (round % 2 == 0 ? set_upgrade_map() : clear_upgrade_map()) == 0; },
    [](int) {
        char value[2] = {};
        return get_armboot_para("a", value, sizeof value) == 0 && value[0] == '1';
    },
    [](int round) {
        const uint8_t bytes[2] = {static_cast<uint8_t>(round), static_cast<uint8_t>(round)};
        return writeCMOS(100, bytes, sizeof bytes) >= 0;
    },
    [](int) {
        uint8_t bytes[2] = {};
        return readCMOS(100, bytes, sizeof bytes) >= 0 && bytes[0] == bytes[1];
    },
    [](int round) { return gpio_set_bit(5, static_cast<uint8_t>(round & 1)) >= 0; },
    [](int) { return gpio_get_bit(5) >= 0; },
    [](int) { return hwid_retry() == 0 && check_product_model("TRV-A1") == 1 && get_dvr_info(19) == 1; },
    [](int) {
        char token[MARL_PROC_TOKEN_SIZE] = {};
        return get_proc_field("/proc/qorzo/bootpara", "qz_keyboard", ':', token, nullptr) == 0;
    },
    [](int) {
        char names[32];
        int count = 0;
        return NetGetEthName(names, sizeof names, &count) == 0 && mii_diag("eth2") <= 0;
    },
    [](int) { return NetGetEthIndex("eth2", "") == 2 && get_keyboard_bootpara() == 2 && get_appauto() == 1; },
};

const std::string kShared = kTraffic + "env a=1\nfile /proc/net/dev eth0: 0\nfile " + kNetwork +
                            " HOSTIP = 10.0.0.1\nword " + kFlag + " 0\n";

// While another process saves what they read.
TEST(Threads, CallWhatIsSafeInAnyOrder) {
    if (!scenario::in_real_time(kShared)) return;
    const pid_t saver = fork();
    if (saver == 0) {
        bool saves = true;
        for (unsigned i = 0; saves && i < 50; ++i)
            saves = NetConfigWriteKey(kNetwork.c_str(), "HOSTIP", kAddresses[i % 2].c_str()) == 0;
        _exit(saves ? 0 : 1);
    }
    std::atomic<int> failed{-1};
    std::atomic<bool> all_saved{false};
    const auto run = [&](unsigned seed) {
        std::minstd_rand random(seed);
        for (int round = 0; round < 400 || !all_saved; ++round) {
            const size_t which = random() % std::size(kSafeCalls);
            if (!kSafeCalls[which](round)) failed = static_cast<int>(which);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) threads.emplace_back(run, seed);
    int status = -1;
    EXPECT_EQ(waitpid(saver, &status, 0), saver);
    EXPECT_EQ(status, 0) << "of the one that saves";
    all_saved = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failed, -1) << "number of the call";
}

TEST(Processes, WorkBesideTheDaemonOnOneBoard) {
    const scenario::BoardDirectory board;
    setenv("MARL_SIM_TIME", "real", 1);
    const auto start = [&](const char* program, double seconds, const std::vector<std::string>& arguments) {
        if (fork() != 0) return;
        const auto run = scenario::run(program, kShared + kEncodeBeats + kMediaGuardBeats,
                                       {.seconds = seconds, .arguments = arguments, .root = board.path()});
        _exit(run.status == 0 && run.journal.count("out \"[sentrel]") == 0 ? 0 : 1);
    };
    start("sentrel", 6, {});
    for (int tries = 0; tries < 1000 && !fs::exists(board.path() + kFlag); ++tries) poll(nullptr, 0, 10);
    setenv("MARL_SIM_BESIDE", "1", 1);
    start("tests/neighbours_test", 60, {"--gtest_filter=Threads.CallWhatIsSafeInAnyOrder"});
    for (int status = -1; wait(&status) > 0;) EXPECT_EQ(status, 0);
    EXPECT_TRUE(fs::exists(board.path() + kFlag));
}

}  // namespace
