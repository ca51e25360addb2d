// What lies below the services: text, transfers.
#include <fcntl.h>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "helpers/board.h"

namespace {

using namespace board;
using namespace marl;

TEST(Text, Numbers) {
    EXPECT_EQ(Ints({decimal("4294967297"), decimal("-7x")}), Ints({1, -7})) << "the low 32 bits";
}

TEST(Interruptions, AreOutlastedButNotForEver) {
    const std::tuple<std::string, int, double> cases[] = {
        {"1..99", 1, 0.2}, {"1..100", 1, 0}, {"1..100000", -1, 0}};
    for (const auto& [range, transferred, slept] : cases) {
        load("file /tmp/file x\nfault /tmp/file read " + range + " EINTR\nfault * sleep " + range + " EINTR");
        const Fd file(open_file("/tmp/file", O_RDONLY));
        char byte = 0;
        EXPECT_EQ(read_some(file.get(), &byte, 1), transferred);
        sleep_ms(200);
        EXPECT_EQ(sim::now(), slept);
    }
    load("fault out write 1 EINTR\nfault out write 2 short 1");
    EXPECT_EQ(Ints({diag::line("ab"), diag::out("c")}), Ints({3, 1}));
    EXPECT_EQ(counts({"out \"a\"", "out \"b\\n\"", "out \"c\"", "out"}), Ints({1, 1, 1, 4}));
}

}  // namespace
