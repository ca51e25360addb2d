// The daemon on consoles that nobody reads: it supervises.
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
        EXPECT_EQ(fcntl(console.writer(), F_GETFL) & O_NONBLOCK,
                  kind == console::Kind::Socket ? O_NONBLOCK : 0);
        EXPECT_NEAR(stall.journal.time_of("/dev/misc/gpio write 2: 23 01"), 84.42, 0.1);
        const std::string pressed = "at 20 level 23 0\nat 26 level 23 1\n";
        const auto button = run_sentrel(kTraffic + kEncodeBeats + kMediaGuardBeats + pressed, 300, options);
        EXPECT_GE(button.journal.count("command \"mkdir "), 3U);
        EXPECT_EQ(Ints({stall.status, button.status}), Ints(2, kBoardReset));
    }
}

}  // namespace
