// What the daemon notices, decides and does: heartbeats, the reset button, the co-processor.

#include "helpers/board.h"

namespace {

using namespace board;
using scenario::kAnyTime;
using scenario::run_sentrel;

constexpr int kBoardReset = 3;

const std::string kTraffic =
    "env HWID=TRV-A1-I:1:1:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\n"
    "env appauto=1\n"
    "file /proc/qorzo/bootpara qz_keyboard:2\n"
    "file /proc/net/emac_stats DEMAC Error               : 0\n"
    "file /proc/net/wireless eth0: 0\n";
const std::string kEncodeBeats = "beat /tmp/encode_to_sentrel every 1\n";
const std::string kMediaGuardBeats = "beat /tmp/mediaguard_to_sentrel every 1\n";
const std::string kMediaGuardStalls = "beat /tmp/mediaguard_to_sentrel every 1 until 60\n";

// The reboot path from `start` on, to the reset of the board 1.22 s later.
Steps reboot_from(double start) {
    return at(start, {"/dev/misc/gpio write 2: 04 00"}) +
           at(start + 0.05, {"/dev/misc/gpio write 2: 04 01"}) +
           at(start + 0.1, {"out \"[libmarl] sync....\\n\"", "sync"}) +
           at(start + 0.3, {"out \"[libmarl] ......reset 3G module fix wire.......\\n\"",
                            "/dev/misc/gio_expander write 2: 06 00"}) +
           at(start + 1.2, {"out \"[libmarl] before ioctl \\n\"",
                            "out \"[libmarl] write reboot cmos start\\n\"", "/dev/misc/rtc write 2: 01 00",
                            "out \"[libmarl] write reboot cmos end \\n\"", "/dev/misc/gpio write 2: 23 00"}) +
           at(start + 1.22, {"/dev/misc/gpio write 2: 23 01", "board reset gpio35"});
}

TEST(Heartbeat, AStallRebootsAtTheFourthUnchangedCheck) {
    const auto run = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardStalls, 300);
    const auto other =
        run_sentrel(kTraffic + kMediaGuardBeats + "beat /tmp/encode_to_sentrel every 1 until 60\n", 300);
    EXPECT_EQ(Ints({run.status, other.status}), Ints(2, kBoardReset));
    EXPECT_TRUE(
        run.journal.follows(at(83.2, {"out \"[sentrel] MediaGuard is killed\\n\""}) + reboot_from(83.2)));
    EXPECT_TRUE(
        other.journal.follows(at(83.2, {"out \"[sentrel] encode is killed\\n\""}) + reboot_from(83.2)));
    EXPECT_EQ(run.journal.count("out \"monitor_mediaguard, shm_mediaguard = 0"), 1U) << "the daemon's own 0";
}

TEST(Heartbeat, ZeroIsMissingForMediaGuardOnly) {
    const auto silent = run_sentrel(kTraffic, 300);
    EXPECT_EQ(silent.journal.count("out \"monitor_mediaguard, shm_mediaguard = 0, not reboot System\\n\""),
              6U);
    EXPECT_TRUE(silent.journal.follows({{31.2, "out \"[sentrel] mmap  is failed\\n\""}}));
    EXPECT_TRUE(silent.journal.follows(reboot_from(31.2)));
    const auto no_encode = run_sentrel(kTraffic + kMediaGuardBeats, 300);
    EXPECT_EQ(no_encode.status, 0);
    EXPECT_EQ(no_encode.journal.count("out \"[sentrel]"), 0U);
}

TEST(Heartbeat, OnlyBoardsOfTheFirstCategoryAreWatched) {
    const auto run = run_sentrel(
        "env HWID=IPC-KN1E:1:2:0:a:6\nenv appauto=1\nfile /proc/qorzo/bootpara qz_keyboard:2\n", 60);
    EXPECT_EQ(counts({"/tmp/mediaguard", "/tmp/encode"}, run.journal), Ints(2, 0));
}

TEST(Heartbeat, AStallWaitsForTheUpgradeToEnd) {
    const auto run = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardStalls +
                                     "at 70 word /tmp/upgrade_ing 1\nat 100 word /tmp/upgrade_ing 0\n",
                                 300);
    for (const double check : {83.2, 88.4, 93.6, 98.8}) {
        EXPECT_TRUE(run.journal.follows(
            at(check, {"out \"[sentrel] MediaGuard is killed\\n\"", "out \"upgrade is on, skip--\\n\""})));
    }
    EXPECT_EQ(run.journal.count("out \"upgrade is on, skip--"), 4U);
    EXPECT_TRUE(run.journal.follows(reboot_from(104.0)));
}

TEST(Heartbeat, AnUpgradeThatStartsAfterTheDecisionDelaysTheRebootTenMinutes) {
    // The second look at the flag, and every later one, finds an upgrade running.
    const auto run = run_sentrel(
        kTraffic + kEncodeBeats + kMediaGuardStalls + "fault /tmp/upgrade_ing read 2+ EIO\n", 900);
    EXPECT_EQ(run.journal.count("out \"upgrade is on, skip--"), 0U);
    EXPECT_TRUE(run.journal.follows(reboot_from(683.2)));
    const auto unmapped = run_sentrel(
        kTraffic + kEncodeBeats + kMediaGuardStalls + "fault /tmp/upgrade_ing mmap 1+ ENOMEM\n", 100);
    EXPECT_EQ(unmapped.status, 0);
    EXPECT_EQ(unmapped.journal.count("out \"upgrade is on, skip--"), 4U);
}

TEST(Heartbeat, AFileThatShrinksGoesOrComesAgainEndsNothing) {
    const auto run = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardBeats +
                                     "at 30.5 truncate /tmp/mediaguard_to_sentrel 0\n"
                                     "at 41.5 truncate /tmp/encode_to_sentrel 3\n"
                                     "at 60.5 delete /tmp/mediaguard_to_sentrel\n"
                                     "at 80.5 delete /tmp/encode_to_sentrel\n",
                                 300);
    EXPECT_EQ(run.status, 0) << run.journal.text();
    EXPECT_EQ(run.journal.count("out \"[sentrel]"), 0U);
    // A process that dies is judged, whether it leaves its file truncated or standing.
    const auto gone = run_sentrel(
        kTraffic + kEncodeBeats + kMediaGuardStalls + "at 61 truncate /tmp/mediaguard_to_sentrel 0\n", 300);
    EXPECT_TRUE(gone.journal.follows(reboot_from(88.4)));
    const auto deleted = run_sentrel(
        kTraffic + kEncodeBeats + kMediaGuardStalls + "at 61 delete /tmp/mediaguard_to_sentrel\n", 300);
    EXPECT_TRUE(deleted.journal.follows(reboot_from(83.2)));
}

// MediaGuard's file, a second before each of `checks` deleted and made anew by a line.
std::string anew(const std::vector<int>& checks, const std::string& line) {
    std::string script;
    for (const int check : checks) {
        const std::string at = "at " + std::to_string(5.2 * check - 1) + " ";
        script += at + "delete /tmp/mediaguard_to_sentrel\n" + at + line + "\n";
    }
    return script;
}

TEST(Heartbeat, AFileMadeAnewIsJudgedAsTheOldOne) {
    const std::string word = "word /tmp/mediaguard_to_sentrel ";
    const std::vector<int> always = {2, 3, 4, 5, 6, 7, 8};
    const std::tuple<const char*, std::string, double> cases[] = {
        {"starts over and over", anew(always, word + "7"), 32.42},
        {"with a word of 0", anew(always, word + "0"), 32.42},
        {"with an empty file", anew(always, "file! /tmp/mediaguard_to_sentrel"), 32.42},
        {"beats, slowly", anew({2}, word + "1") + anew({6}, word + "2") + anew({10}, word + "3"), -1},
    };
    for (const auto& [what, script, reset] : cases) {
        const auto run = run_sentrel(kTraffic + kEncodeBeats + script, 70);
        EXPECT_NEAR(run.journal.time_of("board reset gpio35"), reset, 0.01) << what << run.journal.text();
        EXPECT_EQ(run.journal.count("/tmp/mediaguard_to_sentrel write"), 1U) << "only the daemon's own file";
    }
}

TEST(Heartbeat, ALinkLeadsNowhereAndStopsNothing) {
    const scenario::BoardDirectory board;
    scenario::Options options;
    options.root = board.path();
    std::ofstream(board.path() + "/precious") << "precious";
    std::filesystem::create_directory(board.path() + "/tmp");
    std::filesystem::create_symlink("../precious", board.path() + "/tmp/mediaguard_to_sentrel");
    const auto run = run_sentrel(kTraffic + kEncodeBeats, 40, options);
    EXPECT_EQ(run.journal.count("out \"open /tmp/mediaguard_to_sentrel failed\\n\""), 7U);
    EXPECT_EQ(board.read("/precious"), "precious");
}

TEST(WatchdogReset, ComesWhenNobodyFeedsIt) {
    const auto run = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardBeats + "wdt fed 40\n", 100);
    EXPECT_EQ(run.status, kBoardReset);
    EXPECT_TRUE(run.journal.follows({{65, "board reset watchdog"}})) << "25 s after the last feed";
}

// Whatever else is broken, the stall is noticed and the board comes back.
TEST(Heartbeat, NoFaultOfAnotherDeviceStopsTheSupervision) {
    const std::string faults[] = {
        "missing /dev/misc/rtc",
        "missing /dev/misc/gio_expander",
        "fault /dev/misc/gpio read 1+ EIO",
        "fault /dev/misc/gpio read 3..90 EINTR",
        "fault /dev/misc/gpio read 5+ short 0",
        "fault /dev/misc/gpio open 2..40 EMFILE",
        "fault /dev/misc/rtc write 1+ EIO",
        "fault /tmp/encode_to_sentrel open 1+ EACCES",
        "fault /tmp/encode_to_sentrel mmap 1+ ENOMEM",
        "fault /tmp/mediaguard_to_sentrel open 1..3 ENFILE",
        "fault /tmp/mediaguard_to_sentrel read 2..5 EINTR",
        "fault /tmp/upgrade_ing open 1 EROFS",
        "fault * pthread_create 1 EAGAIN",
    };
    const std::string board = kTraffic + kEncodeBeats + kMediaGuardStalls;
    for (const std::string& fault : faults) {
        const auto run = run_sentrel(board + fault + "\n", 120);
        EXPECT_EQ(run.status, kBoardReset) << fault << run.journal.text();
        EXPECT_NEAR(run.journal.time_of("board reset gpio35"), 84.42, 0.002) << fault;
    }
    EXPECT_EQ(run_sentrel(board + "envimage short:100\n", 120).status, 0)
        << "without its environment the board is not supervised, but it lives";
}

const std::string kConfigured =
    "file /mnt/mtd/Config/network HOSTIP = 10.0.0.2\nfile /mnt/backup/Config/network HOSTIP = 10.0.0.2\n"
    "file /mnt/mtd/Log/old text\nfile /mnt/mtd/kept text\n";

TEST(ResetButton, HeldFor25PassesWipesAndReboots) {
    const scenario::BoardDirectory board;
    const auto run = run_sentrel(kTraffic + kMediaGuardBeats + kConfigured + "at 20.1 level 23 0\n", 60,
                                 {.root = board.path()});
    EXPECT_EQ(run.status, kBoardReset);
    EXPECT_TRUE(run.journal.follows(
        at(25.0, {"sync", "out \"sentRel: i will reboot\\n\"", "command \"rm /mnt/mtd/Config/* -rf\"",
                  "command \"rm /mnt/backup/Config/* -rf\"", "command \"rm /mnt/mtd/Log -rf\"",
                  "command \"mkdir /mnt/mtd/Config\"", "command \"mkdir /mnt/mtd/Log\"",
                  "command \"mkdir /mnt/backup/Config\"", "/dev/misc/rtc open rw",
                  "/dev/misc/rtc write 5: 28 00 00 66 00", "/dev/misc/rtc write 2: 01 00",
                  "/dev/misc/rtc close", "out \"clear cmos succ\\n\""}) +
        at(25.2, {"command \"reboot\""}) + at(25.4, {"out \"sentRel: i will reboot\\n\""}) +
        at(kAnyTime, {"board reset command"})));
    EXPECT_EQ(run.journal.count("/dev/misc/spi0"), 0U);
    for (const char* emptied : {"/mnt/mtd/Config", "/mnt/backup/Config", "/mnt/mtd/Log"})
        EXPECT_TRUE(std::filesystem::is_empty(board.path() + emptied)) << emptied;
    EXPECT_EQ(board.read("/mnt/mtd/kept"), "text\n");
}

TEST(ResetButton, ReleasedAfter24PassesDoesNothing) {
    const auto run =
        run_sentrel(kTraffic + kMediaGuardBeats + kConfigured +
                        "at 20.1 level 23 0\nat 24.9 level 23 1\nat 30.1 level 23 0\nat 34.9 level 23 1\n",
                    60);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.journal.count("command"), 0U);
    // A poll that fails says nothing about the button: the countdown goes on where it stood.
    const auto failing = run_sentrel(
        kTraffic + kMediaGuardBeats + "at 20.1 level 23 0\nfault /dev/misc/gpio read 110..114 EIO\n", 60);
    EXPECT_EQ(failing.journal.time_of("out \"sentRel: i will reboot\\n\""), 26.0);
    const auto without_rtc =
        run_sentrel(kTraffic + kMediaGuardBeats + "missing /dev/misc/rtc\nat 20.1 level 23 0\n", 60);
    EXPECT_TRUE(without_rtc.journal.follows(
        {{25, "out \" can't open /dev/misc/rtc\\n\""}, {25.2, "command \"reboot\""}}));
}

TEST(ResetButton, LineFollowsTheProductType) {
    const std::pair<const char*, const char*> lines[] = {
        {"Q4", "30"}, {"IPC-KR1", "31"}, {"IPC-KW2", "36"}, {"IPC-KQ3", "23"}};
    for (const auto& [model, line] : lines) {
        const auto run =
            run_sentrel(std::string("env HWID=") + model + ":1:2\nat 1.1 level " + line + " 0\n", 10);
        EXPECT_EQ(run.journal.time_of("out \"sentRel: i will reboot\\n\""), 6.0) << model;
    }
}

const std::string kCoprocessor =
    "env HWID=IPC-KL7:1:2:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\n"
    "file /proc/qorzo/bootpara qz_keyboard:2\n"
    "present /dev/misc/spi0\npresent /dev/davinci_vpfe\n"
    "spi0 version DM365 V1.02 V2.03\n";
const std::string kVersionKnown = "file /mnt/mtd/dm365_version known\n";
const char* const kPulseLow = "/dev/misc/gpio write 2: 30 00";
const char* const kPulseHigh = "/dev/misc/gpio write 2: 30 01";
const char* const kHoldBegins = "/dev/misc/spi0 ioctl 0x40047307 1";
const char* const kHoldEnds = "/dev/misc/spi0 ioctl 0x40047307 0";
constexpr double kFifteenMinutes = 900;

double stack_used(const scenario::Journal& journal) {
    const auto lines = journal.all("clone stack used ");
    return lines.empty() ? -1 : strtod(lines.back().text.c_str() + strlen("clone stack used "), nullptr);
}

// The sanitizers' own use of the stack would be most of what is measured.
void expect_room_on_the_stack(const scenario::Outcome& run) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    static_cast<void>(stack_used(run.journal));
#else
    EXPECT_GT(stack_used(run.journal), 0) << "not measured";
    EXPECT_LE(stack_used(run.journal), 8096 * 0.75);
#endif
}

TEST(Coprocessor, HealthyAndKnownIsOnlyLookedAt) {
    const auto run = run_sentrel(kCoprocessor + kVersionKnown, kFifteenMinutes);
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.journal.follows(
        at(25.0, {"/dev/davinci_vpfe open r", "/dev/misc/spi0 open r", "/mnt/mtd/dm365_version open r"}) +
        at(30.0, {"/dev/davinci_vpfe ioctl 0x80145603"}) +
        at(45.0, {"/dev/misc/spi0 ioctl 0x4004730b", "/dev/misc/spi0 ioctl 0x80047302",
                  "/dev/misc/spi0 ioctl 0x40047305"}) +
        at(45.05, {"/dev/misc/spi0 ioctl 0x40047305", "/dev/misc/spi0 ioctl 0x4004730c"}) +
        at(45.07, {"/dev/misc/spi0 ioctl 0x4004730b", "/dev/misc/spi0 ioctl 0x4004730a"}) +
        at(45.12, {"/dev/misc/spi0 ioctl 0x4004730a", "/dev/misc/spi0 ioctl 0x4004730c"}) +
        at(60.12, {"/dev/misc/spi0 ioctl 0x4004730b"})));
    EXPECT_EQ(counts({kPulseLow, kHoldBegins}, run.journal), Ints(2, 0));
    expect_room_on_the_stack(run);
}

TEST(Coprocessor, UnknownVersionIsRecordedAndFollowedByAReset) {
    const scenario::BoardDirectory board;
    const auto run = run_sentrel(kCoprocessor, 100, {.root = board.path()});
    EXPECT_TRUE(run.journal.follows(
        at(25.0, {"/dev/misc/spi0 ioctl 0x4004730b", "/dev/misc/spi0 ioctl 0x4004730d",
                  "/mnt/mtd/dm365_version open rw create trunc", "out \"DM365\\nV1.02\\nV2.03\\n\"",
                  "/mnt/mtd/dm365_version write 64", "/dev/misc/spi0 ioctl 0x4004730c", kPulseLow}) +
        at(25.02, {kPulseHigh}) + at(25.52, {kHoldBegins}) + at(70.52, {kHoldEnds}) +
        at(75.52, {"/dev/davinci_vpfe ioctl 0x80145603"})));
    const std::string record = board.read("/mnt/mtd/dm365_version");
    ASSERT_EQ(record.size(), 64U);
    EXPECT_EQ(Strings({record.c_str(), record.c_str() + 32, record.c_str() + 48}),
              Strings({"DM365", "V2.03", "V1.02"}));
    expect_room_on_the_stack(run);
}

TEST(Coprocessor, StartWithoutAVersionRecord) {
    const struct {
        const char *script, *message;
        size_t resets;
    } cases[] = {
        {"fault /dev/misc/spi0 ioctl:0x4004730d 1 EIO\n", "err \"Input/output error\\n\"", 1},
        {"fault /mnt/mtd/dm365_version open 2 EROFS\n",
         "err \"creat dm365_version\\n: Read-only file system\\n\"", 1},
        {"missing /dev/misc/spi0\n", "out \"@@: spi0 device is not open\\n\"", 1},
        {"spi0 status 0x2468\n", "/dev/misc/spi0 ioctl 0x80047302 -> 0x2468", 0},
        {"fault /mnt/mtd/dm365_version open 1 EACCES\n", "/mnt/mtd/dm365_version open r -> EACCES", 0},
    };
    for (const auto& c : cases) {
        const auto run = run_sentrel(kCoprocessor + c.script, 28);
        EXPECT_EQ(run.journal.count(c.message), 1U) << c.script << run.journal.text();
        EXPECT_EQ(run.journal.count(kPulseLow), c.resets) << c.script;
    }
}

// Else no later start would ask again.
TEST(Coprocessor, AVersionRecordIsWholeOrNotThere) {
    const std::string fault = "fault /mnt/mtd/dm365_version ";
    const std::pair<std::string, size_t> cases[] = {
        {fault + "write 1 ENOSPC\n", 0},
        {fault + "write 1 short 10\n" + fault + "write 2 ENOSPC\n", 0},
        {fault + "write 1 short 10\n" + fault + "write 2 short 0\n", 0},
        {fault + "close 1 EDQUOT\n", 0},
        {fault + "write 1 short 10\n", 64},
    };
    for (const auto& [script, size] : cases) {
        const scenario::BoardDirectory board;
        scenario::Options options;
        options.root = board.path();
        const auto run = run_sentrel(kCoprocessor + script, 28, options);
        EXPECT_EQ(run.journal.count("err \"creat dm365_version\\n: "), size == 0 ? 1U : 0U) << script;
        EXPECT_EQ(board.read("/mnt/mtd/dm365_version").size(), size) << script;
        EXPECT_EQ(std::filesystem::exists(board.path() + "/mnt/mtd/dm365_version"), size > 0) << script;
    }
}

TEST(Coprocessor, CaptureStallIsResetTwiceThenReported) {
    const auto run = run_sentrel(
        kCoprocessor + kVersionKnown + "vpfe stalled 1\nat 200 vpfe stalled 0\nat 300 vpfe stalled 1\n", 400);
    const char* const reboots = "out \"**********: sentrel reboot dm365 ***********\\n\"";
    const char* const given_up = "out \"====>:   sentrel: May be DM365 Broken:  <=======\\n\"";
    EXPECT_TRUE(run.journal.follows({{30.0, reboots},
                                     {30.0, kPulseLow},
                                     {30.52, kHoldBegins},
                                     {75.52, kHoldEnds},
                                     {80.52, reboots},
                                     {80.52, kPulseLow},
                                     {126.04, kHoldEnds},
                                     {131.04, reboots},
                                     {131.04, kPulseLow},
                                     {131.56, given_up},
                                     {136.56, given_up}}));
    EXPECT_EQ(run.journal.count(reboots), 5U) << "a good reading forgives: two more after 300 s";
    expect_room_on_the_stack(run);
}

TEST(Coprocessor, SilentLinkAndAbnormal2aAreResetTwiceThenReported) {
    const auto silent = run_sentrel(kCoprocessor + kVersionKnown + "spi0 alive 0\n", kFifteenMinutes);
    const char* const not_alive =
        "out \"=========>sentrel:  SPI NOT ALIVE , reset DM365<=================\\n\"";
    const char* const always = "out \"=============<  SPI alway be Problem>================\\n\"";
    EXPECT_TRUE(silent.journal.follows({{45.05, not_alive},
                                        {45.05, kPulseLow},
                                        {45.57, kHoldBegins},
                                        {90.57, kHoldEnds},
                                        {105.62, not_alive},
                                        {106.14, kHoldBegins},
                                        {151.14, kHoldEnds},
                                        {166.19, always},
                                        {166.21, "/dev/misc/spi0 ioctl 0x4004730b"}}));
    EXPECT_EQ(silent.journal.count(kPulseLow), 2U);
    const auto abnormal = run_sentrel(kCoprocessor + kVersionKnown + "spi0 2a 1\n", kFifteenMinutes);
    const char* const is_abnormal = "out \"++++++++++++:  dm365: 2A is abnormal ++++++++++++++++\\n\"";
    const char* const always_2a = "out \"=============< DM365 2A always be Problem>===================\\n\"";
    EXPECT_TRUE(abnormal.journal.follows({{45.12, is_abnormal},
                                          {45.12, kPulseLow},
                                          {90.64, kHoldEnds},
                                          {105.76, is_abnormal},
                                          {151.28, kHoldEnds},
                                          {166.4, always_2a}}));
    EXPECT_EQ(abnormal.journal.count(kPulseLow), 2U);
    expect_room_on_the_stack(silent);
}

TEST(Coprocessor, AnUpgradeSuspendsEveryReset) {
    const auto run = run_sentrel(
        kCoprocessor + kVersionKnown + "spi0 status 0x2468\nspi0 alive 0\nspi0 2a 1\nvpfe stalled 1\n",
        kFifteenMinutes);
    EXPECT_TRUE(
        run.journal.follows({{30, "out \"now  system is upograde\\n\""},
                             {60, "out \"now  system is upograde\\n\""},
                             {65, "out \"-------------:dm365 UPGRADING: step 1-----------------\\n\""},
                             {75.02, "out \"-------------:dm365 UPGRADING: step 2-----------------\\n\""}}));
    EXPECT_EQ(counts({kPulseLow, "/dev/misc/spi0 ioctl 0x40047305"}, run.journal), Ints(2, 0));
}

TEST(Coprocessor, DevicesThatAppearLateOrNever) {
    const auto late = run_sentrel(
        kCoprocessor + kVersionKnown + "missing /dev/davinci_vpfe\nat 37 present /dev/davinci_vpfe\n", 60);
    EXPECT_TRUE(late.journal.follows({{25, "out \"[ERROR]: open /dev/davinci_vpfe fail\\n\""},
                                      {30, "/dev/davinci_vpfe open rw -> ENOENT"},
                                      {40, "/dev/davinci_vpfe open rw"},
                                      {45, "/dev/davinci_vpfe ioctl"},
                                      {45, "/dev/misc/spi0 ioctl 0x4004730b"}}));
    const auto never =
        run_sentrel(kCoprocessor + kVersionKnown + "missing /dev/davinci_vpfe\n", kFifteenMinutes);
    EXPECT_EQ(never.journal.count("/dev/davinci_vpfe open"), 5U);
    EXPECT_EQ(never.journal.count("/dev/misc/spi0 ioctl"), 0U) << "without both devices nothing is checked";
    const auto failing =
        run_sentrel(kCoprocessor + kVersionKnown + "fault /dev/davinci_vpfe ioctl 1+ EIO\n", 200);
    EXPECT_EQ(failing.journal.time_of("out \"[ERROR]: ioctl ==>: read vpfe inttrupts fail, ret = -1\\n\""),
              failing.journal.all("/dev/davinci_vpfe ioctl")[10].time);
    EXPECT_EQ(failing.journal.count(kPulseLow), 0U);
}

TEST(Coprocessor, LearnsOfTheFactoryReset) {
    const auto run = run_sentrel(kCoprocessor + kVersionKnown + "at 30.1 level 23 0\n", 60);
    EXPECT_TRUE(
        run.journal.follows(at(35, {"out \"clear cmos succ\\n\"", "/dev/misc/spi0 ioctl 0x40047306 42599"}) +
                            at(35.2, {"command \"reboot\""})));
    const auto early = run_sentrel(kCoprocessor + kVersionKnown + "at 1.1 level 23 0\n", 20);
    EXPECT_EQ(early.journal.count("/dev/misc/spi0"), 0U) << "the link is opened after 25 s";
}

TEST(Coprocessor, WithoutItsTaskTheRestGoesOn) {
    const auto run = run_sentrel(kCoprocessor + "fault * clone 1 EAGAIN\n", 60);
    EXPECT_TRUE(run.journal.follows(at(0, {"out \"create failed:-1\\n\"", "out \"sentrel V1.13(no exit)"})));
    EXPECT_EQ(run.status, 0);
}

}  // namespace
