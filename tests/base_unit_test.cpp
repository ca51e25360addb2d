// What lies below the services: messages on difficult consoles, text, transfers.
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>

#include "base/crc32.h"
#include "base/diag.h"
#include "base/text.h"
#include "daemon/clone_task.h"
#include "daemon/proc_stat.h"
#include "gtest/gtest.h"
#include "sim.h"

namespace {

using namespace marl;

TEST(Text, IsBoundedByItsBuffers) {
    char buffer[4];
    copy_text(buffer, sizeof buffer, "abcdef");
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(first_word(" \t one two"), "one");
    EXPECT_EQ(first_word(" \n"), "");
    EXPECT_EQ(decimal("4294967297"), 1) << "the low 32 bits";
    EXPECT_EQ(decimal("-7x"), -7);
    EXPECT_EQ(hexadecimal("zz"), 0U);
    EXPECT_EQ(crc32(std::span(reinterpret_cast<const uint8_t*>("123456789"), 9)), 0xCBF43926U);
}

TEST(ProcStat, ClimbsToItsAncestors) {
    sim::load(
        "file /proc/30/stat 30 (child) S 20 31 32\nfile /proc/20/stat 20 (parent) R 1 21\n"
        "file /proc/1/stat 1 (init) S 0 1\nfile /proc/40/stat 40 (short)\nfile /proc/50/stat 50 (orphan) S "
        "99 1");
    sentrel::ProcStatInfo info{};
    ASSERT_EQ(sentrel::get_proc_stat(30, &info, 0), 0);
    EXPECT_STREQ(info.command, "(child)");
    EXPECT_EQ(info.state, 'S');
    EXPECT_EQ(info.parent, 20);
    EXPECT_EQ(info.process_group, 31);
    ASSERT_EQ(sentrel::get_proc_stat(30, &info, 9), 0);
    EXPECT_STREQ(info.command, "(init)") << "no further than the process without parent";
    EXPECT_EQ(sentrel::get_proc_stat(40, &info, 0), -1);
    EXPECT_EQ(sentrel::get_proc_stat(50, &info, 1), -1);
}

int note_argument(void* argument) {
    ++*static_cast<std::atomic<int>*>(argument);
    return 0;
}

TEST(CloneTask, RunsOnceInTheSameMemory) {
    sim::load("");
    static std::atomic<int> runs = 0;
    int id = -1;
    ASSERT_EQ(sentrel::clone_thread_create(&id, note_argument, &runs), 0);
    EXPECT_GT(id, 0);
    while (runs == 0 && sim::now() < 5) usleep(1000);
    EXPECT_EQ(runs, 1);
    sim::run("fault * clone 1 EAGAIN");
    EXPECT_EQ(sentrel::clone_thread_create(&id, note_argument, &runs), -1);
    EXPECT_EQ(id, 0);
}

}  // namespace
