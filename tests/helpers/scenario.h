// Runs a shipped program on a scripted board and reads its journal.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace scenario {

inline constexpr double kAnyTime = -1;

struct Event {  // a line of the journal: "time who what"
    double time;
    std::string text;  // "who what"
};

class Journal {
  public:
    explicit Journal(std::string_view text);

    // The events whose text begins with `start`, and the time of the first, -1 when there is none.
    std::vector<Event> all(std::string_view start) const;
    size_t count(std::string_view start) const { return all(start).size(); }
    double time_of(std::string_view start) const;

    // Events that come in this order, others between them ignored.
    struct Step {
        double time;        // in seconds, or kAnyTime
        std::string start;  // of its text
    };
    testing::AssertionResult follows(const std::vector<Step>& steps) const;

    const std::string& text() const { return text_; }

  private:
    std::string text_;
    std::vector<Event> events_;
};

struct Outcome {
    Journal journal;
    int status;          // exit status, or 128 and the signal
    std::string output;  // of the program's standard output, as far as it was read
};

struct Options {
    double seconds = 1;  // of board time, after which the run ends
    std::vector<std::string> arguments = {};
    std::string root = {};  // an existing board directory; empty: a fresh one that goes with the run
    bool keep_output = false;
    std::function<void()> streams = {};  // run in the program's process, in place of redirecting its output
    std::string build = {};              // another build directory than this one
};

// `program` is a path in the build directory, "sentrel" or "tests/...".
Outcome run(const std::string& program, const std::string& script, const Options& options = {});

inline Outcome run_sentrel(const std::string& script, double seconds, Options options = {}) {
    options.seconds = seconds;
    return run("sentrel", script, options);
}

std::string read_file(const std::string& path);
std::string build_directory();    // of this test program, wherever it was taken to
std::string scratch_directory();  // where tests keep their files: not on the board

// A board directory for several runs; removed at the end.
class BoardDirectory {
  public:
    BoardDirectory() : path_(scratch_directory()) {}
    ~BoardDirectory() { std::filesystem::remove_all(path_); }
    BoardDirectory(const BoardDirectory&) = delete;
    BoardDirectory& operator=(const BoardDirectory&) = delete;
    const std::string& path() const { return path_; }
    std::string read(const std::string& file) const { return read_file(path_ + file); }

  private:
    std::string path_;
};

// Whether the test runs in real time, where threads run side by side. A board's time is settled when its program starts,
// so the first answer is no, and then the test has run in a process of its own and passed, or failed here.
bool in_real_time(const std::string& board);

}  // namespace scenario
