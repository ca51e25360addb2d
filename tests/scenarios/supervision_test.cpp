// What the daemon notices, decides and does: heartbeats, the reset button, the co-processor.

#include <cstdio>
#include <sstream>

#include "helpers/board.h"

namespace {

using namespace board;
using scenario::kAnyTime;
using scenario::run_sentrel;

const std::string kStall = kTraffic + kEncodeBeats + kMediaGuardStalls;
const std::string kMediaGuard = "/tmp/mediaguard_to_sentrel", kUpgrade = "/tmp/upgrade_ing";

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
    const char* const kKilled = "out \"[sentrel] MediaGuard is killed\\n\"";
    const char* const kNone = "out \"[sentrel] mmap  is failed\\n\"";
    const struct {
        std::string script;
        double time;
        const char* message;
        size_t zeros;  // are missing for MediaGuard only
    } cases[] = {
        {kEncodeBeats + kMediaGuardStalls, 83.2, kKilled, 1},
        {kMediaGuardBeats + "beat /tmp/encode_to_sentrel every 1 until 60\n", 83.2,
         "out \"[sentrel] encode is killed\\n\"", 1},
        {"", 31.2, kNone, 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        const auto run = run_sentrel(kTraffic + c.script, 300);
        EXPECT_EQ(run.status, kBoardReset);
        EXPECT_TRUE(run.journal.follows(at(c.time, {c.message}) + reboot_from(c.time)));
        EXPECT_EQ(run.journal.count("out \"monitor_mediaguard, shm_mediaguard = 0, not reboot System\\n\""),
                  c.zeros);
    }
    const auto stuck = run_sentrel(kStall + "at 84 fault /dev/misc/gpio write 1..2 EIO\n", 120);
    EXPECT_NEAR(stuck.journal.time_of("board reset gpio35"), 94.44, 0.01) << "the next pulse, in ten seconds";
}

TEST(Heartbeat, AnUpgradeDelaysTheReboot) {
    const auto run =
        run_sentrel(kStall + "at 70 word " + kUpgrade + " 1\nat 100 word " + kUpgrade + " 2\n", 300);
    const std::string skips = "out \"upgrade is on, skip--\\n\"";
    for (const double check : {83.2, 88.4, 93.6, 98.8}) {
        EXPECT_TRUE(run.journal.follows(at(check, {"out \"[sentrel] MediaGuard is killed\\n\"", skips})));
    }
    EXPECT_TRUE(run.journal.follows(at(104.0, {"out \"\\e[1;33m[libmarl] WARN"}) + reboot_from(104.0)));
    // One that starts after the decision, by ten minutes: the second look at the flag, and every later
    // one, finds it.
    const auto later = run_sentrel(kStall + "fault " + kUpgrade + " read 2+ EIO\n", 900);
    EXPECT_TRUE(later.journal.follows(reboot_from(683.2)));
    EXPECT_EQ(Ints({counts({skips}, run.journal)[0], counts({skips}, later.journal)[0]}), Ints({4, 0}));
}

TEST(ResetButton, HeldFor25PassesWipesAndReboots) {
    const scenario::BoardDirectory board;
    const std::string files =
        "file /mnt/mtd/Config/network HOSTIP = 10.0.0.2\nfile /mnt/backup/Config/network HOSTIP = 10.0.0.2\n"
        "file /mnt/mtd/Log/old text\nfile /mnt/mtd/kept text\nat 20.1 level 23 0\n";
    const auto run = run_sentrel(kTraffic + kMediaGuardBeats + files, 60, {.root = board.path()});
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
    const std::string held = kTraffic + kMediaGuardBeats + "at 20.1 level 23 0\n";
    const auto run = run_sentrel(held + "at 24.9 level 23 1\nat 30.1 level 23 0\nat 34.9 level 23 1\n", 60);
    EXPECT_EQ(Ints({run.status, counts({"command"}, run.journal)[0]}), Ints(2, 0));
    // A poll that fails says nothing about the button: the countdown goes on where it stood.
    const auto failing = run_sentrel(held + "fault /dev/misc/gpio read 110..114 EIO\n", 60);
    EXPECT_EQ(failing.journal.time_of("out \"sentRel: i will reboot\\n\""), 26.0);
    std::istringstream boards("Q5 30 IPC-KT1 30 NULL 30 IPC-KR1 31 IPC-KW1 36 IPC-KW2 36 IPC-KQ3 23");
    for (std::string model, line; boards >> model >> line;) {
        const auto other = run_sentrel("env HWID=" + model + ":1:2\nat 1.1 level " + line + " 0\n", 10);
        EXPECT_EQ(other.journal.time_of("out \"sentRel: i will reboot\\n\""), 6.0) << model;
    }
    const auto late = run_sentrel("env HWID=Q4:1:2\nfault /dev/mtd/1 read 1..8 EIO\nat 1.1 level 30 0\n", 12);
    EXPECT_EQ(late.journal.time_of("out \"sentRel: i will reboot\\n\""), 9.8) << "known after 5 s";
}

const std::string kUnknown =
    "env HWID=IPC-KL7:1:2:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\nfile /proc/qorzo/bootpara qz_keyboard:2\n"
    "present /dev/misc/spi0\npresent /dev/davinci_vpfe\nspi0 version DM365 V1.02 V2.03\n";
const std::string kKnown = kUnknown + "file /mnt/mtd/dm365_version known\n";
const char* const kPulseLow = "/dev/misc/gpio write 2: 30 00";
const std::string kLink = "/dev/misc/spi0 ioctl 0x4004730";
const std::string kHoldBegins = kLink + "7 1", kHoldEnds = kLink + "7 0", kVpfe = "/dev/davinci_vpfe ";

// The sanitizers' own use of the stack would be most of what is measured.
void expect_room_on_the_stack([[maybe_unused]] const scenario::Outcome& run) {
#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
    const std::string used = "clone stack used ";
    const auto lines = run.journal.all(used);
    ASSERT_FALSE(lines.empty()) << "not measured";
    puts(lines.back().text.c_str());
    EXPECT_LE(std::stod(lines.back().text.substr(used.size())), 8096 * 0.75);
#endif
}

TEST(Coprocessor, HealthyAndKnownIsOnlyLookedAt) {
    const auto run = run_sentrel(kKnown, 900);
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.journal.follows(
        at(25.0, {kVpfe + "open r", "/dev/misc/spi0 open r", "/mnt/mtd/dm365_version open r"}) +
        at(30.0, {kVpfe + "ioctl 0x80145603"}) +
        at(45.0, {kLink + "b", "/dev/misc/spi0 ioctl 0x80047302", kLink + "5"}) +
        at(45.05, {kLink + "5", kLink + "c"}) + at(45.07, {kLink + "b", kLink + "a"}) +
        at(45.12, {kLink + "a", kLink + "c"}) + at(60.12, {kLink + "b"})));
    EXPECT_EQ(counts({kPulseLow, kHoldBegins}, run.journal), Ints(2, 0));
    expect_room_on_the_stack(run);
}

TEST(Coprocessor, UnknownVersionIsRecordedAndFollowedByAReset) {
    const scenario::BoardDirectory board;
    const auto run = run_sentrel(kUnknown + "fault /mnt/mtd/dm365_version write 1 short 20\n", 100,
                                 {.root = board.path()});
    EXPECT_TRUE(
        run.journal.follows(at(25.0, {kLink + "b", kLink + "d", "/mnt/mtd/dm365_version open rw create trunc",
                                      "out \"DM365\\nV1.02\\nV2.03\\n\"", "/mnt/mtd/dm365_version write 20",
                                      "/mnt/mtd/dm365_version write 44", kLink + "c", kPulseLow}) +
                            at(25.02, {"/dev/misc/gpio write 2: 30 01"}) + at(25.52, {kHoldBegins}) +
                            at(70.52, {kHoldEnds}) + at(75.52, {kVpfe + "ioctl 0x80145603"})));
    std::string record = "DM365" + std::string(59, '\0');
    record.replace(32, 5, "V2.03").replace(48, 5, "V1.02");
    EXPECT_EQ(board.read("/mnt/mtd/dm365_version"), record);
    expect_room_on_the_stack(run);
}

TEST(Coprocessor, StartWithoutAVersionRecord) {
    const struct {
        const char *script, *message;
        size_t resets;
    } cases[] = {
        {"fault /dev/misc/spi0 ioctl:0x4004730d 1 EIO\n", "err \"Input/output error\\n\"", 1},
        {"fault /mnt/mtd/dm365_version close 1 EDQUOT\n", "err \"creat dm365_version\\n: Disk quota", 1},
        {"fault /mnt/mtd/dm365_version write 1 short 0\n", "err \"creat dm365_version\\n: Input/output", 1},
        {"missing /dev/misc/spi0\n", "out \"@@: spi0 device is not open\\n\"", 1},
        {"spi0 status 0x2468\n", "/dev/misc/spi0 ioctl 0x80047302 -> 0x2468", 0},
        {"fault /mnt/mtd/dm365_version open 1 EACCES\n", "/mnt/mtd/dm365_version open r -> EACCES", 0},
        {"file /mnt/mtd/dm365_version known\nfault /mnt/mtd/dm365_version open 1 ENOENT\n",
         "/mnt/mtd/dm365_version open r -> ENOENT", 0},
    };
    for (const auto& c : cases) {
        const auto run = run_sentrel(kUnknown + c.script, 28);
        EXPECT_EQ(run.journal.count(c.message), 1U) << c.script << run.journal.text();
        EXPECT_EQ(run.journal.count(kPulseLow), c.resets) << c.script;
    }
}

TEST(Coprocessor, CaptureStallIsResetTwiceThenReported) {
    const auto run =
        run_sentrel(kKnown + "vpfe stalled 1\nat 200 vpfe stalled 0\nat 300 vpfe stalled 1\n", 405);
    const char* const reboots = "out \"**********: sentrel reboot dm365 ***********\\n\"";
    const char* const given_up = "out \"====>:   sentrel: May be DM365 Broken:  <=======\\n\"";
    EXPECT_TRUE(run.journal.follows(at(30.0, {reboots, kPulseLow}) + at(30.52, {kHoldBegins}) +
                                    at(75.52, {kHoldEnds}) + at(80.52, {reboots, kPulseLow}) +
                                    at(126.04, {kHoldEnds}) + at(131.04, {reboots, kPulseLow}) +
                                    at(131.56, {given_up}) + at(146.56, {given_up, kLink + "b"})));
    EXPECT_EQ(run.journal.count(reboots), 6U) << "a good reading forgives: three more after 300 s";
    expect_room_on_the_stack(run);
}

TEST(Coprocessor, DevicesThatAppearLateOrNever) {
    const std::string missing = kKnown + "missing /dev/davinci_vpfe\n";
    const auto late = run_sentrel(missing + "at 37 present /dev/davinci_vpfe\n", 60);
    EXPECT_TRUE(late.journal.follows(at(25, {"out \"[ERROR]: open /dev/davinci_vpfe fail\\n\""}) +
                                     at(30, {kVpfe + "open rw -> ENOENT"}) + at(40, {kVpfe + "open rw"}) +
                                     at(45, {kVpfe + "ioctl", kLink + "b"})));
    const auto never = run_sentrel(missing, 900);
    EXPECT_EQ(counts({kVpfe + "open", "/dev/misc/spi0 ioctl"}, never.journal), Ints({5, 0}))
        << "without both devices nothing is checked";
    const auto failing = run_sentrel(
        kKnown + "fault /dev/davinci_vpfe ioctl 1+ EIO\nfault /dev/misc/spi0 ioctl:0x4004730a 1+ EIO\n", 200);
    EXPECT_EQ(failing.journal.time_of("out \"[ERROR]: ioctl ==>: read vpfe inttrupts fail, ret = -1\\n\""),
              failing.journal.all(kVpfe + "ioctl")[10].time);
    EXPECT_EQ(counts({kPulseLow, "out \"[ERROR]: ioctl"}, failing.journal), Ints({0, 3}));
}

}  // namespace
