// The shipped daemon starts on a board and runs its loop.

#include <sstream>

#include "helpers/board.h"

namespace {

using namespace board;
using scenario::run_sentrel;

const std::string kIdentity = ":1:2:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\n";
const std::string kCamera = "env HWID=IPC-KN1E" + kIdentity +
                            "env appauto=1\nfile /proc/qorzo/bootpara qz_keyboard:2\n"
                            "file /proc/net/emac_stats DEMAC Error               : 0\n";
const std::string kRecorder = "env HWID=QZ-NRX2" + kIdentity + "file /proc/qorzo/bootpara qz_keyboard:2\n";

TEST(Boot, FromPowerOnToTheFirstClockSync) {
    const auto run = run_sentrel(kCamera, 305);
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.journal.follows(
        at(0,
           {"/dev/mtd/1 open rw", "/dev/mtd/1 read 131072", "/dev/misc/gpio open rw",
            "/dev/misc/gpio write 2: 20 01",
            "out \"sentrel V1.13(no exit): startup time=25 s, appauto=1, hctosystime=1500,type=IPC-KN1E\\n\"",
            "/tmp/upgrade_ing open rw create", "/tmp/upgrade_ing close", "/dev/misc/wdt open rw",
            "/dev/misc/wdt ioctl 0x5 25000", "/dev/misc/wdt ioctl 0x7", "/dev/misc/wdt ioctl 0x4"}) +
        at(150.2, {"/dev/misc/rtc open r"}) +
        at(151.0, {"clock settimeofday 1767225751 west 0", "/dev/misc/rtc close"}) +
        at(301.2, {"/dev/misc/rtc open r"}) + at(302.0, {"clock settimeofday 1767225902 west 0"}) +
        at(305, {"board end"})));
    EXPECT_EQ(counts({"out \"coremnt not found\\n\"", "/dev/misc/wdt ioctl 0x4"}, run.journal), Ints(2, 1));
    EXPECT_EQ(counts({"/dev/mcu", "command", "clone", "out \"set", "out \"Create"}, run.journal), Ints(5, 0));
    // A steady pass touches what is due and nothing else.
    for (const auto& event : run.journal.all("")) {
        const auto begins = [&](const char* start) { return event.text.starts_with(start); };
        EXPECT_TRUE(event.time <= 1 || event.time > 150 || begins("/dev/misc/gpio read 1") ||
                    begins("/proc/net/emac_stats") || begins("out \"coremnt not found"))
            << event.text;
    }
    EXPECT_NEAR(static_cast<double>(run.journal.count("/dev/misc/gpio read 1")), 305 / 0.2 - 8, 8)
        << "one poll a pass";
}

TEST(Boot, WatchdogPeriodComesFromTheCommandLine) {
    std::istringstream cases(
        "10 10000 40 40000 2 3000 0 3000 soon 3000 -1 3000 99999999999999999999 2147483000");
    for (std::string argument, milliseconds; cases >> argument >> milliseconds;) {
        const auto run = run_sentrel(kCamera, 1, {.arguments = {argument}});
        EXPECT_EQ(run.journal.count("/dev/misc/wdt ioctl 0x5 " + milliseconds), 1U) << argument;
    }
}

TEST(Boot, TheWatchdogIsArmedWithAppautoOrTheDaemonEnds) {
    for (const char* appauto : {"", "env appauto=0\n"}) {
        const auto run = run_sentrel(kRecorder + appauto, 40);
        EXPECT_EQ(counts({"/dev/misc/wdt", "/tmp/mediaguard_to_sentrel",
                          "out \"sentrel V1.13(no exit): startup time=25 s, appauto=0,"},
                         run.journal),
                  Ints({0, 0, 1}));
    }
    const std::pair<const char*, const char*> faults[] = {
        {"missing /dev/misc/wdt\n", "out \"open wdt failed\\n\""},
        {"fault /dev/misc/wdt ioctl:5 1 EIO\n", "out \"ioctl wdt period failed\\n\""},
        {"fault /dev/misc/wdt ioctl:7 1 EIO\n", "out \"ioctl wdt resume failed\\n\""}};
    for (const auto& [script, message] : faults) {
        const auto run = run_sentrel(kCamera + script, 40);
        EXPECT_EQ(run.status, 255) << message;
        EXPECT_EQ(counts({message, "/dev/misc/gpio read"}, run.journal), Ints({1, 0}));
    }
}

TEST(CoreMount, RunsItsCommandAndIsToldToStop) {
    const char* const stop = "out \"exit mount\\n\"";
    const char* const kill = "command \"killall mount\"";
    const std::string longest = "env coremnt=mount " + std::string(255 - 6, 'x');
    const std::tuple<std::string, Steps, int> cases[] = {
        {"env coremnt=mount -t nfs 10.0.0.9:/export /mnt/core\ncommand mount 0 60",
         at(20, {"out \"mount -t nfs 10.0.0.9:/export /mnt/core success 0,ret=15\\n\""}), 1},
        {"env coremnt=mount x", at(0, {"out \"mount x success 0,ret=0\\n\""}) + at(20, {stop, kill}), 1},
        {longest, at(20, {stop, kill}), 1},
        {longest + "x", at(0, {"out \"coremnt is longer than 255 characters, not run\\n\""}), 0},
    };
    for (const auto& [script, steps, times] : cases) {
        const auto run = run_sentrel(kCamera + script, 60);
        EXPECT_TRUE(run.journal.follows(steps));
        EXPECT_EQ(counts({"command \"mount", stop, kill}, run.journal), Ints(3, times)) << script;
    }
}

TEST(ClockSync, IsSkippedOrReported) {
    const auto upgrading = run_sentrel(kCamera + "at 100 word /tmp/upgrade_ing 1\n", 160);
    EXPECT_EQ(upgrading.journal.time_of("out \"==>hwclock skip\\n\""), 150.2);
    EXPECT_EQ(upgrading.journal.count("/dev/misc/rtc"), 0U);
    const auto stopped = run_sentrel(kCamera + "rtc 2031-10-09 08:07:06\nrtc stopped\n", 160);
    EXPECT_EQ(stopped.journal.time_of("clock settimeofday 1949299626 west 0"), 152.2);
    const auto unreadable = run_sentrel(kCamera + "fault /dev/misc/rtc ioctl 1+ EIO\n", 160);
    EXPECT_EQ(
        counts({"out \"error RTC_RD\\n\"", "clock settimeofday", "/dev/misc/rtc close"}, unreadable.journal),
        Ints({200, 0, 1}))
        << "never from a reading that failed";
    // The zone is passed from the second time on.
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    const auto zone = run_sentrel(kCamera, 305);
    unsetenv("TZ");
    EXPECT_TRUE(zone.journal.follows(at(151, {"clock settimeofday 1767222151 west 0"}) +
                                     at(302, {"clock settimeofday 1767222302 west -120"})));
}

}  // namespace
