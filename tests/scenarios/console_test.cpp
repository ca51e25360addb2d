// The daemon on consoles that nobody reads, and on none: it supervises, and writes nothing where it does not belong.
#include "helpers/console.h"

#include <unistd.h>

#include "helpers/board.h"

namespace {

using console::Console;
using console::Kind;
using scenario::run_sentrel;

constexpr int kBoardReset = 3;

const std::string kSupervised =
    "env HWID=TRV-A1-I:1:1:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\n"
    "env appauto=1\n"
    "file /proc/qorzo/bootpara qz_keyboard:2\n"
    "file /proc/net/emac_stats DEMAC Error               : 0\n"
    "beat /tmp/encode_to_sentrel every 1\n";

TEST(StuckConsole, StopsNoSupervision) {
    for (const Kind kind : {Kind::CookedTerminal, Kind::RawTerminal, Kind::Pipe, Kind::Socket}) {
        SCOPED_TRACE(static_cast<int>(kind));
        const Console console(kind);
        console.fill();
        const scenario::Options options{.streams = [&console] { console.become_streams(); }};
        const auto stall =
            run_sentrel(kSupervised + "beat /tmp/mediaguard_to_sentrel every 1 until 60\n", 300, options);
        EXPECT_EQ(stall.status, kBoardReset);
        EXPECT_NEAR(stall.journal.time_of("/dev/misc/gpio write 2: 23 01"), 84.42, 0.1);
        const auto button = run_sentrel(
            kSupervised + "beat /tmp/mediaguard_to_sentrel every 1\nat 20 level 23 0\nat 26 level 23 1\n",
            300, options);
        EXPECT_GE(button.journal.count("command \"rm "), 3U);
        EXPECT_GE(button.journal.count("command \"mkdir "), 3U);
        EXPECT_EQ(button.status, kBoardReset);
    }
}

TEST(ClosedStreams, PutNoMessageIntoADevice) {
    const scenario::BoardDirectory usual;
    run_sentrel(kSupervised, 30, {.root = usual.path()});
    for (unsigned closed = 1; closed < 8; ++closed) {
        SCOPED_TRACE(closed);
        const scenario::BoardDirectory board;
        const auto close_streams = [closed] {
            for (int fd = 0; fd < 3; ++fd) {
                if ((closed >> fd & 1) != 0) close(fd);
            }
        };
        const auto run = run_sentrel(kSupervised, 30, {.root = board.path(), .streams = close_streams});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.journal.count("/dev/misc/wdt ioctl 0x4"), 1U);
        for (const char* device : {"/dev/mtd/1", "/dev/misc/gpio", "/dev/misc/wdt", "/dev/misc/rtc"}) {
            EXPECT_TRUE(board.read(device) == usual.read(device)) << device;
        }
    }
}

}  // namespace
