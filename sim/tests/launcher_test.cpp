// The launcher: a program runs on the simulated board, or it does not run at all.
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sched.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/swap.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "helpers/scenario.h"
#include "launch/run.h"
#include "sim.h"

namespace {

namespace fs = std::filesystem;

// A build in a place whose name the loader would take apart.
class Launcher : public testing::Test {
  protected:
    Launcher() : build_(scratch_.path() + "/my work: tree") {
        fs::create_directories(build_ + "/tests");
        for (const char* file : {"sim-launch", "libmarlsim.so", "libmarl.so.1", "tests/identify"})
            fs::copy(scenario::build_directory() + "/" + file, build_ + "/" + file);
    }
    std::string file(const char* name) const { return build_ + "/" + name; }
    scenario::Outcome start(const std::string& script = "env HWID=IPC-KN1E:1:2\n") const {
        return scenario::run("tests/identify", script, {.keep_output = true, .build = build_});
    }

  private:
    scenario::BoardDirectory scratch_;
    std::string build_;
};

TEST_F(Launcher, StartsFromAnyPlace) {
    const auto run = start();
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.journal.count("board start"), 1U);
    EXPECT_NE(run.output.find("model=IPC-KN1E"), std::string::npos) << run.output;
}

template <class Body>
bool edit(const std::string& path, Body body) {
    std::string bytes = scenario::read_file(path);
    body(bytes);
    std::ofstream(path, std::ios::binary) << bytes;
    return true;
}

bool for_another_machine(const std::string& path) {
    return edit(path, [](std::string& bytes) { bytes[offsetof(ElfW(Ehdr), e_machine)] = char{EM_68K}; });
}

bool of_another_build(const std::string& path) {
    return edit(path, [](std::string& bytes) { bytes[bytes.find(sim::build_word)] = '?'; });
}

// Removes the parts of an image that are of one kind.
template <uint32_t kType>
bool without(const std::string& path) {
    return edit(path, [](std::string& bytes) {
        const auto& header = *reinterpret_cast<const ElfW(Ehdr)*>(bytes.data());
        auto* part = reinterpret_cast<ElfW(Phdr)*>(bytes.data() + header.e_phoff);
        for (int i = 0; i < header.e_phnum; ++i) {
            if (part[i].p_type == kType) part[i].p_type = PT_NULL;
        }
    });
}

template <mode_t kMode>
bool with_mode(const std::string& path) {
    return chmod(path.c_str(), kMode) == 0;
}

bool with_capabilities(const std::string& path) {
    constexpr char kRaw[20] = {0, 0, 0, 2, 0, 0x20};
    return setxattr(path.c_str(), "security.capability", kRaw, sizeof kRaw, 0) == 0;
}

TEST_F(Launcher, RefusesWhatTheBoardWouldNotBeUnder) {
    constexpr const char* kProgram = "tests/identify";
    constexpr const char* kBoard = "libmarlsim.so";
    const struct {
        const char* file;
        bool (*spoil)(const std::string& path);
        const char* message;
    } cases[] = {
        {kProgram, for_another_machine, "built for another architecture"},
        {kBoard, for_another_machine, "built for another architecture"},
        {kBoard, [](auto& path) { return fs::remove(path); }, "No such file or directory"},
        {kBoard, of_another_build, "of another build than this launcher"},
        {kBoard, without<PT_DYNAMIC>, "the loader leaves out the board"},
        {kProgram, without<PT_INTERP>, "linked statically"},
        {kProgram, with_mode<04755>, "set-user-id or set-group-id"},
        {kProgram, with_mode<02755>, "set-user-id or set-group-id"},
        {kProgram, with_capabilities, "has capabilities"},
        {kProgram, [](auto& path) { return truncate(path.c_str(), 10) == 0; }, "not a program"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.file) + " " + c.message);
        const fs::path whole = file("whole");
        fs::copy(file(c.file), whole);
        if (c.spoil(file(c.file))) {
            const auto run = start();
            EXPECT_EQ(run.status, 2);
            EXPECT_EQ(run.output.find("simulated board: not started: "),
                      run.output.rfind("simulated board: "));
            EXPECT_NE(run.output.find(c.message), std::string::npos) << run.output;
            EXPECT_EQ(run.output.find("model="), std::string::npos) << run.output;
            EXPECT_EQ(run.journal.text(), "");
        } else {
            EXPECT_NE(geteuid(), 0U) << "nobody else may be kept from spoiling a file";
        }
        fs::remove(file(c.file));
        fs::rename(whole, file(c.file));
    }
}

TEST_F(Launcher, TheRealNetworkIsNeverThatOfTheMachine) {
    if (sim::launch::has_own_network()) GTEST_SKIP() << "this is no network of the machine";
    EXPECT_EXIT(sim::load("network real\n"), testing::ExitedWithCode(2), "no network namespace of its own");
    const auto launched = start("network real\n");
    const bool refused = launched.output.find("wants a network of its own") != std::string::npos;
    EXPECT_EQ(launched.status, refused ? 2 : 0);
}

// The program that these tests launch is this one: it runs the same test, on the other side.
bool is_launched() { return getenv(sim::launch::kHomeVariable) != nullptr; }
scenario::Outcome launch_this_test() {
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    return scenario::run("tests/launcher_test", "",
                         {.arguments = {"--gtest_filter=Launched." + name}, .keep_output = true});
}

// Every attempt is harmless should it succeed.
void reach_for_the_machine() {
    static const std::string kOutside = scenario::build_directory() + "/outside";
    static const char* const kPath = kOutside.c_str();
    static char* const kNoArguments[] = {nullptr};
    const struct {
        const char* what;
        bool (*succeeds)();
    } cases[] = {
        {"open", [] { return open(kPath, O_WRONLY | O_CREAT, 0600) >= 0; }},
        {"open upwards", [] { return open(("/tmp/../" + kOutside).c_str(), O_WRONLY | O_CREAT, 0600) >= 0; }},
        {"openat", [] { return openat(AT_FDCWD, kPath, O_WRONLY | O_CREAT, 0600) >= 0; }},
        {"fopen", [] { return fopen(kPath, "w") != nullptr; }},
        {"mkdir", [] { return mkdir(kPath, 0700) == 0; }},
        {"rename", [] { return close(creat("/tmp/x", 0600)) == 0 || rename("/proc", kPath) == 0; }},
        {"symlink", [] { return symlink("x", kPath) == 0; }},
        {"execv", [] { return execv("/bin/true", kNoArguments) == 0; }},
        {"posix_spawn",
         [] { return posix_spawn(nullptr, "/bin/true", nullptr, nullptr, kNoArguments, nullptr) == 0; }},
        {"popen", [] { return popen("true", "r") != nullptr; }},
        {"kill", [] { return kill(getppid(), 0) == 0; }},
        {"setns", [] { return setns(-1, 0) == 0 || errno != EPERM; }},
        {"swapoff", [] { return swapoff(kPath) == 0 || errno != EPERM; }},
        {"syscall", [] { return syscall(SYS_swapoff, kPath) == 0 || errno != EPERM; }},
        {"local socket", [] { return socket(AF_UNIX, SOCK_STREAM, 0) >= 0; }},
        {"socket", [] { return socket(AF_INET, SOCK_DGRAM, 0) >= 0; }},
    };
    for (const auto& c : cases) EXPECT_FALSE(c.succeeds()) << c.what;
    EXPECT_FALSE(fs::exists(kOutside));
    EXPECT_EQ(kill(getpid(), 0), 0);
}

TEST(Launched, ReachesNothingOfTheMachine) {
    if (is_launched()) return reach_for_the_machine();
    const auto run = launch_this_test();
    EXPECT_EQ(run.status, 0) << run.output;
    for (const char* refused : {"open w", "execv", "popen", "kill", "swapoff", "syscall"}) {
        EXPECT_NE(run.journal.text().find(refused), std::string::npos) << refused;
    }
}

TEST(Launched, WhatAKilledRunLeavesIsRemovedByTheNext) {
    if (is_launched()) {
        puts(getenv(sim::launch::kHomeVariable));
        fflush(stdout);
        kill(getpid(), SIGKILL);
    }
    const auto killed = launch_this_test();
    EXPECT_EQ(killed.status, 128 + SIGKILL);
    const std::string start = std::string("/tmp/") + sim::launch::kStart;
    const size_t at = killed.output.find(start);
    ASSERT_NE(at, std::string::npos) << killed.output;
    scenario::run("tests/identify", "");
    EXPECT_FALSE(fs::exists("/proc/self/root" + killed.output.substr(at, start.size() + 6)));
    EXPECT_TRUE(fs::exists(sim::root())) << "of this run, which lives";
}

}  // namespace
