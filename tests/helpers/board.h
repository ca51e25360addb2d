// What tests do to the board they run on, and what they see of it.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "helpers/scenario.h"
#include "sim.h"

namespace board {

// Several results at once: a difference names its place in the list.
using Ints = std::vector<int>;
using Strings = std::vector<std::string>;

inline void load(const std::string& script) { sim::load(script.c_str()); }
inline void run(const std::string& lines) { sim::run(lines.c_str()); }

inline size_t count(std::string_view start) { return scenario::Journal(sim::journal()).count(start); }
inline Ints counts(const Strings& starts,
                   const scenario::Journal& journal = scenario::Journal(sim::journal())) {
    Ints numbers;
    for (const std::string& start : starts) numbers.push_back(static_cast<int>(journal.count(start)));
    return numbers;
}
inline bool seen(std::string_view text) {
    return std::string(sim::journal()).find(text) != std::string::npos;
}

// Steps of a journal that come at the same time, and those that come after them.
using Steps = std::vector<scenario::Journal::Step>;
inline Steps at(double time, const Strings& starts) {
    Steps steps;
    for (const std::string& start : starts) steps.push_back({time, start});
    return steps;
}
inline Steps operator+(Steps steps, const Steps& later) {
    steps.insert(steps.end(), later.begin(), later.end());
    return steps;
}

// The function that a test's own of the same name stands before.
template <typename Function>
Function* behind(Function* /*own*/, const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// The journal of this process.
inline testing::AssertionResult journal_follows(const Strings& starts) {
    return scenario::Journal(sim::journal()).follows(at(scenario::kAnyTime, starts));
}

// A traffic camera, whose MediaGuard and encoder are to beat, and how it ends when it is reset.
inline const std::string kTraffic =
    "env HWID=TRV-A1-I:1:1:0:a:6:0:1:1:1:1:0:1b0:0:0:0:0:0:0:1:0\nenv appauto=1\n"
    "file /proc/qorzo/bootpara qz_keyboard:2\nfile /proc/net/emac_stats DEMAC Error               : 0\n"
    "file /proc/net/wireless eth0: 0\n";
inline const std::string kEncodeBeats = "beat /tmp/encode_to_sentrel every 1\n";
inline const std::string kMediaGuardBeats = "beat /tmp/mediaguard_to_sentrel every 1\n";
inline const std::string kMediaGuardStalls = "beat /tmp/mediaguard_to_sentrel every 1 until 60\n";
inline constexpr int kBoardReset = 3;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
inline constexpr bool kHeapFails = false;  // when a script says so: the heap is the sanitizer's
#else
inline constexpr bool kHeapFails = true;
#endif

inline std::string path_of(const std::string& path) { return sim::root() + path; }

// Writes a file of the board, its directories included.
inline void write_file(const std::string& path, std::string_view text) {
    std::filesystem::create_directories(std::filesystem::path(path_of(path)).parent_path());
    std::ofstream(path_of(path), std::ios::binary) << text;
}

inline std::string read_file(const std::string& path) { return scenario::read_file(path_of(path)); }

}  // namespace board
