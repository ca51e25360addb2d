// Files and calls that others spoil: words that are made anew, links, leases, endless interruptions, records cut short.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "base/clock.h"
#include "base/fd.h"
#include "daemon/proc_stat.h"
#include "helpers/scenario.h"
#include "libmarl.h"
#include "sim.h"

namespace {

namespace fs = std::filesystem;
using scenario::journal_follows;
using scenario::run_sentrel;

const std::string kTraffic =
    "env HWID=TRV-A1-I:1:1:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\nenv appauto=1\n"
    "file /proc/net/emac_stats DEMAC Error               : 0\nbeat /tmp/encode_to_sentrel every 1\n";
const std::string kMediaGuard = "/tmp/mediaguard_to_sentrel";
constexpr double kCheck = 5.2;

// MediaGuard's file deleted and made anew at a time, by this line.
std::string anew(double time, const std::string& line) {
    const std::string at = "at " + std::to_string(time) + " ";
    return at + "delete " + kMediaGuard + "\n" + at + line + "\n";
}

// Anew a second before each check.
std::string always_anew(const std::string& line) {
    std::string script;
    for (int check = 2; check < 30; ++check) script += anew(check * kCheck - 1, line);
    return script;
}

struct AnewCase {
    const char* what;
    std::string script;
    double reset;  // -1: none
};

TEST(Heartbeat, AFileMadeAnewIsJudgedAsTheOldOne) {
    const std::string word = "word " + kMediaGuard + " ";
    // Each beat comes in a file of its own, 18 s after the last one.
    std::string slow;
    for (int beat = 1; beat < 8; ++beat) slow += anew(18 * beat - 8.6, word + std::to_string(beat));
    const AnewCase cases[] = {
        {"starts over and over", always_anew(word + "7"), 32.42},
        {"with a word of 0", always_anew(word + "0"), 32.42},
        {"with an empty file", always_anew("file! " + kMediaGuard), 32.42},
        {"beats slowly", slow, -1},
    };
    for (const AnewCase& c : cases) {
        SCOPED_TRACE(c.what);
        const auto run = run_sentrel(kTraffic + c.script, 140);
        EXPECT_NEAR(run.journal.time_of("board reset gpio35"), c.reset, 0.01) << run.journal.text();
        EXPECT_EQ(run.journal.count(kMediaGuard + " write"), 1U) << "only the daemon's own file";
    }
}

TEST(Heartbeat, ALinkLeadsNowhereAndStopsNothing) {
    const scenario::BoardDirectory board;
    scenario::Options options;
    options.root = board.path();
    std::ofstream(board.path() + "/precious") << "precious";
    fs::create_directory(board.path() + "/tmp");
    fs::create_symlink("../precious", board.path() + kMediaGuard);
    const auto run = run_sentrel(kTraffic + "at 20 delete /tmp/encode_to_sentrel\n", 40, options);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.journal.count("out \"open " + kMediaGuard + " failed\\n\""), 7U);
    EXPECT_EQ(board.read("/precious"), "precious");
}

const char* const kFlag = "/tmp/upgrade_ing";

std::string host(const std::string& path) { return sim::root() + path; }

constexpr uint32_t kNoFile = 77;

uint32_t stored_flag() {
    uint32_t word = kNoFile;
    std::ifstream(host(kFlag), std::ios::binary).read(reinterpret_cast<char*>(&word), sizeof word);
    return word;
}

// What the other processes of the device do to the file, what this one does then, and what is so afterwards.
TEST(UpgradeFlag, IsFollowedToAFileMadeAnew) {
    const std::string anew = "delete /tmp/upgrade_ing\nword /tmp/upgrade_ing ";
    const struct {
        std::string others;
        int (*operation)();
        int result;
        uint32_t stored;
        int running;
    } steps[] = {
        {"", init_upgrade_map, 0, 0, 0},
        {"", set_upgrade_map, 0, 1, 1},
        {"", clear_upgrade_map, 0, 0, 0},
        {anew + "1", check_upgrade_map, 1, 1, 1},
        {"", clear_upgrade_map, 0, 0, 0},
        {anew + "0", set_upgrade_map, 0, 1, 1},
        {"delete /tmp/upgrade_ing", check_upgrade_map, 1, kNoFile, 1},
        {"", clear_upgrade_map, 0, kNoFile, 0},
        {"", set_upgrade_map, 0, 1, 1},
        {"truncate /tmp/upgrade_ing 1", check_upgrade_map, 1, 1, 1},
    };
    sim::load("");
    for (const auto& step : steps) {
        SCOPED_TRACE(&step - steps);
        sim::run(step.others.c_str());
        EXPECT_EQ(step.operation(), step.result);
        EXPECT_EQ(stored_flag(), step.stored);
        EXPECT_EQ(check_upgrade_map(), step.running);
    }
    sim::clear_journal();
    sim::run("fault /tmp/upgrade_ing write 1..3 ENOSPC\nfault /tmp/upgrade_ing read 1 EIO");
    for (const auto operation : {init_upgrade_map, set_upgrade_map, clear_upgrade_map, check_upgrade_map})
        EXPECT_EQ(operation(), -1);
    const std::string open_failed = "err \"open /tmp/upgrade_ing failed\\n\"";
    EXPECT_TRUE(
        journal_follows({open_failed, open_failed, open_failed, "err \"mmap /tmp/upgrade_ing failed\\n\""}));
}

// Nothing but a regular file is taken for the flag, and nothing is waited for.
TEST(UpgradeFlag, IsARegularFileOrRefused) {
    signal(SIGIO, SIG_IGN);
    static int leased = -1;
    const std::pair<const char*, void (*)(const std::string&)> kinds[] = {
        {"link", [](const std::string& path) { fs::create_symlink("precious", path); }},
        {"link to nothing", [](const std::string& path) { fs::create_symlink("absent", path); }},
        {"FIFO", [](const std::string& path) { EXPECT_EQ(mkfifo(path.c_str(), 0777), 0); }},
        {"directory", [](const std::string& path) { fs::create_directory(path); }},
        {"lease", [](const std::string& path) {
             leased = open(path.c_str(), O_RDWR | O_CREAT, 0777);
             EXPECT_EQ(fcntl(leased, F_SETLEASE, F_WRLCK), 0);
         }}};
    for (const auto& [what, make] : kinds) {
        SCOPED_TRACE(what);
        sim::load("file /tmp/precious precious");
        make(host(kFlag));
        for (const auto operation : {init_upgrade_map, set_upgrade_map, clear_upgrade_map, check_upgrade_map})
            EXPECT_EQ(operation(), -1);
        EXPECT_EQ(fs::file_size(host("/tmp/precious")), 9U);
        EXPECT_FALSE(fs::exists(host("/tmp/absent")));
        const std::string failed = "err \"open /tmp/upgrade_ing failed\\n\"";
        EXPECT_TRUE(journal_follows({failed, failed, failed, failed}));
    }
    close(leased);
}

TEST(Interruptions, AreOutlastedButNotForEver) {
    const struct {
        const char* range;
        bool read;
        double slept;
    } cases[] = {{"1..20", true, 0.2}, {"1..100000", false, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.range);
        const std::string range = c.range;
        sim::load(("word /tmp/upgrade_ing 0\nfault /tmp/upgrade_ing read " + range +
                   " EINTR\nfault * sleep " + range + " EINTR")
                      .c_str());
        const marl::Fd file(marl::open_file(kFlag, O_RDONLY));
        char byte = 0;
        EXPECT_EQ(marl::read_some(file.get(), &byte, 1) == 1, c.read);
        marl::sleep_ms(200);
        EXPECT_EQ(sim::now(), c.slept);
    }
}

const std::string kCoprocessor =
    "env HWID=IPC-KL7:1:2:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\n"
    "present /dev/misc/spi0\npresent /dev/davinci_vpfe\nspi0 version DM365 V1.02 V2.03\n";

TEST(VersionRecord, IsWholeOrNotThere) {
    const std::string fault = "fault /mnt/mtd/dm365_version ";
    const std::pair<std::string, bool> cases[] = {
        {fault + "write 1 ENOSPC\n", false},
        {fault + "write 1 short 10\n" + fault + "write 2 ENOSPC\n", false},
        {fault + "write 1 short 10\n" + fault + "write 2 short 0\n", false},
        {fault + "close 1 EDQUOT\n", false},
        {fault + "write 1 short 10\n", true},
    };
    for (const auto& [script, is_kept] : cases) {
        SCOPED_TRACE(script);
        const scenario::BoardDirectory board;
        scenario::Options options;
        options.root = board.path();
        const auto run = run_sentrel(kCoprocessor + script, 28, options);
        EXPECT_EQ(run.journal.count("err \"creat dm365_version\\n: "), is_kept ? 0U : 1U);
        EXPECT_EQ(board.read("/mnt/mtd/dm365_version").size(), is_kept ? 64U : 0U);
        const auto again = run_sentrel(kCoprocessor, 28, options);
        EXPECT_EQ(again.journal.count("/dev/misc/spi0 ioctl 0x4004730d"), is_kept ? 0U : 1U);
    }
}

TEST(ProcStat, TakesAnyName) {
    const std::pair<const char*, const char*> names[] = {
        {"(abcdefghijklmnopqrstuvwxyz0123456789ABCD)", "(abcdefghijklmnopqrstuvwxyz0123"},
        {"(two words)", "(two words)"},
        {"(a) S 7 8 (b))", "(a) S 7 8 (b))"},
        {"bare", "bare"},
    };
    for (const auto& [name, command] : names) {
        sim::load((std::string("file /proc/60/stat 60 ") + name + " R 20 61 62").c_str());
        sentrel::ProcStatInfo info{};
        ASSERT_EQ(sentrel::get_proc_stat(60, &info, 0), 0) << name;
        EXPECT_STREQ(info.command, command);
        EXPECT_EQ(std::to_string(info.parent) + info.state + std::to_string(info.process_group), "20R61")
            << name;
    }
}

}  // namespace
