// The daemon on consoles that nobody reads, and on none: it supervises, and writes nothing where it
// does not belong.
#include "helpers/console.h"

#include "helpers/board.h"

namespace {

using namespace board;
using scenario::run_sentrel;

TEST(StuckConsole, StopsNoSupervision) {
    for (const console::Kind kind : console::kKinds) {
        SCOPED_TRACE(static_cast<int>(kind));
        const console::Console console(kind);
        console.fill(1);  // where a newline takes two, poll(2) calls it ready, and a write blocks
        const scenario::Options options{.streams = [&] { console::become_streams(console.writer()); }};
        const auto stall = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardStalls, 300, options);
        EXPECT_NEAR(stall.journal.time_of("/dev/misc/gpio write 2: 23 01"), 84.42, 0.1);
        const std::string pressed = "at 20 level 23 0\nat 26 level 23 1\n";
        const auto button = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardBeats + pressed, 300, options);
        EXPECT_GE(button.journal.count("command \"mkdir "), 3U);
        EXPECT_EQ(Ints({stall.status, button.status}), Ints(2, kBoardReset));
    }
}

TEST(ClosedStreams, PutNoMessageIntoADevice) {
    const scenario::BoardDirectory usual;
    run_sentrel(kTraffic + kEncodeBeats, 30, {.root = usual.path()});
    for (unsigned closed = 1; closed < 8; ++closed) {
        SCOPED_TRACE(closed);
        const scenario::BoardDirectory board;
        const auto run =
            run_sentrel(kTraffic + kEncodeBeats, 30,
                        {.root = board.path(), .streams = [closed] { console::close_streams(closed); }});
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.journal.count("/dev/misc/wdt ioctl 0x4"), 1U);
        for (const char* device : {"/dev/mtd/1", "/dev/misc/gpio", "/dev/misc/wdt", "/dev/misc/rtc"}) {
            EXPECT_TRUE(board.read(device) == usual.read(device)) << device;
        }
    }
}

}  // namespace
