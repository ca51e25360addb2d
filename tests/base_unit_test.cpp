// What lies below the services: text, transfers.
#include <fcntl.h>

#include "base/clock.h"
#include "base/fd.h"
#include "base/text.h"
#include "helpers/board.h"

namespace {

using namespace board;
using namespace marl;

TEST(Text, WordsAndNumbers) {
    EXPECT_EQ(first_word(" \t one two"), "one");
    EXPECT_EQ(Ints({decimal("4294967297"), decimal("-7x")}), Ints({1, -7})) << "the low 32 bits";
}

TEST(Interruptions, AreOutlastedButNotForEver) {
    const std::tuple<std::string, int, double> cases[] = {{"1..20", 1, 0.2}, {"1..100000", -1, 0}};
    for (const auto& [range, transferred, slept] : cases) {
        load("file /tmp/file x\nfault /tmp/file read " + range + " EINTR\nfault * sleep " + range + " EINTR");
        const Fd file(open_file("/tmp/file", O_RDONLY));
        char byte = 0;
        EXPECT_EQ(read_some(file.get(), &byte, 1), transferred);
        sleep_ms(200);
        EXPECT_EQ(sim::now(), slept);
    }
}

}  // namespace
