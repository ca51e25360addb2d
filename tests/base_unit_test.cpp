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

// Puts a pipe in the place of standard output for the length of a scope.
class PipedConsole {
  public:
    PipedConsole() : kept_(dup(STDOUT_FILENO)) {
        EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
        dup2(ends_[1], STDOUT_FILENO);
    }
    ~PipedConsole() {
        dup2(kept_, STDOUT_FILENO);
        for (const int fd : {ends_[0], ends_[1], kept_}) close(fd);
    }
    void hang_up() {
        close(ends_[0]);
        ends_[0] = -1;
    }
    void fill() {
        fcntl(ends_[1], F_SETFL, O_NONBLOCK);
        const std::string block(4096, 'x');
        while (write(ends_[1], block.data(), block.size()) > 0) {
        }
        fcntl(ends_[1], F_SETFL, 0);
    }
    std::string read_all() {
        std::string text(1024, '\0');
        text.resize(static_cast<size_t>(read(ends_[0], text.data(), text.size())));
        return text;
    }

  private:
    int kept_;
    int ends_[2];
};

TEST(Console, TakesOneWholeMessageAtATime) {
    const std::string longer(2000, 'm');
    const std::string start = "\033[0;32;31m[libmarl] ERROR (src|fn|7): mmm";
    int written = 0;
    std::string text;
    {
        PipedConsole console;
        written = diag::error({"src", "fn", 7}, "%s\n", longer.c_str());
        text = console.read_all();
    }
    EXPECT_EQ(written, static_cast<int>(text.size()));
    EXPECT_LE(text.size(), size_t{diag::kMessageMax});
    EXPECT_EQ(text.substr(0, start.size()), start);
    EXPECT_EQ(text.substr(text.size() - 4), "m\033[m") << "cut, but the colour ends";
}

TEST(Console, ThatIsGoneOrFullDropsOutput) {
    Ints results;
    int error = 0;
    {
        PipedConsole console;
        console.fill();
        errno = 42;
        results.push_back(diag::line("nobody reads this"));
        console.hang_up();
        results.push_back(diag::line("nobody ever will"));
        close(STDOUT_FILENO);
        results.push_back(diag::line("there is no console"));
        error = errno;
    }
    EXPECT_EQ(results, Ints(3, -1));
    EXPECT_EQ(error, 42) << "messages leave errno alone";
}

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
