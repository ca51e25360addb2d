// What lies below the services: messages on difficult consoles, text, transfers.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/diag.h"
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

}  // namespace
