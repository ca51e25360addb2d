// What lies below the services: messages on difficult consoles, text, transfers.
#include <fcntl.h>

#include "base/clock.h"
#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "daemon/proc_stat.h"
#include "helpers/board.h"

namespace {

using namespace board;
using namespace marl;

TEST(Text, WordsAndNumbers) {
    EXPECT_EQ(first_word(" \t one two"), "one");
    EXPECT_EQ(Ints({decimal("4294967297"), decimal("-7x")}), Ints({1, -7})) << "the low 32 bits";
}

TEST(ProcStat, ClimbsToItsAncestors) {
    load(
        "file /proc/30/stat 30 (child) S 20 31 32\nfile /proc/20/stat 20 (parent) R 1 21\n"
        "file /proc/1/stat 1 (init) S 0 1\nfile /proc/40/stat 40 (short)\nfile /proc/50/stat 50 (orphan) S "
        "99 1");
    sentrel::ProcStatInfo info{};
    ASSERT_EQ(sentrel::get_proc_stat(30, &info, 0), 0);
    EXPECT_STREQ(info.command, "(child)");
    EXPECT_EQ(Ints({info.state, info.parent, info.process_group}), Ints({'S', 20, 31}));
    ASSERT_EQ(sentrel::get_proc_stat(30, &info, 9), 0);
    EXPECT_STREQ(info.command, "(init)") << "no further than the process without parent";
    EXPECT_EQ(Ints({sentrel::get_proc_stat(40, &info, 0), sentrel::get_proc_stat(50, &info, 1)}),
              Ints(2, -1));
}

TEST(ProcStat, TakesAnyName) {
    for (const std::string name :
         {"(abcdefghijklmnopqrstuvwxyz0123456789ABCD)", "(two words)", "(a) S 7 8 (b))", "bare"}) {
        load("file /proc/60/stat 60 " + name + " R 20 61 62");
        sentrel::ProcStatInfo info{};
        ASSERT_EQ(sentrel::get_proc_stat(60, &info, 0), 0) << name;
        EXPECT_EQ(info.command, name.substr(0, 31));
        EXPECT_EQ(Ints({info.state, info.parent, info.process_group}), Ints({'R', 20, 61})) << name;
    }
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
