#include "helpers/scenario.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "helpers/console.h"

namespace scenario {

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string build_directory() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
}

std::string scratch_directory() {
    std::string path = build_directory() + "/scratch-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) abort();
    return path;
}

namespace {

constexpr double kTimeTolerance = 0.0015;

// The launcher is a program of the build as well: an emulator runs it, and it starts another for the program.
std::vector<std::string> command_line(const std::string& program, const Options& options) {
    const std::string build = options.build.empty() ? build_directory() : options.build;
    const char* const given = getenv("MARL_EMULATOR");  // set to nothing where the programs run by themselves
    std::istringstream emulator(given != nullptr ? given : MARL_EMULATOR);
    std::vector<std::string> command;
    for (std::string word; emulator >> word;) command.push_back(word);
    command.insert(command.end(), {build + "/sim-launch", build + "/" + program});
    command.insert(command.end(), options.arguments.begin(), options.arguments.end());
    return command;
}

int spawn(const std::vector<std::string>& command, const std::string& output, const Options& options) {
    std::vector<char*> arguments;
    for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        const int out = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        console::become_streams(out);
        close(out);
        if (options.streams) options.streams();
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

Journal::Journal(std::string_view text) : text_(text) {
    std::istringstream lines(text_);
    for (std::string line; std::getline(lines, line);) {
        char* rest = nullptr;
        const double time = strtod(line.c_str(), &rest);
        if (*rest == ' ') events_.push_back({time, rest + 1});
    }
}

std::vector<Event> Journal::all(std::string_view start) const {
    std::vector<Event> found;
    std::copy_if(events_.begin(), events_.end(), std::back_inserter(found),
                 [&](const Event& event) { return event.text.starts_with(start); });
    return found;
}

double Journal::time_of(std::string_view start) const {
    const auto found = all(start);
    return found.empty() ? -1 : found.front().time;
}

testing::AssertionResult Journal::follows(const std::vector<Step>& steps) const {
    for (auto event = events_.begin(); const Step& step : steps) {
        event = std::find_if(event, events_.end(), [&](const Event& each) {
            const bool is_in_time = step.time == kAnyTime || std::abs(each.time - step.time) < kTimeTolerance;
            return is_in_time && each.text.starts_with(step.start);
        });
        if (event == events_.end())
            return testing::AssertionFailure() << "no " << step.time << " " << step.start << "\n" << text_;
        ++event;
    }
    return testing::AssertionSuccess();
}

Outcome run(const std::string& program, const std::string& script, const Options& options) {
    const std::string scratch = scratch_directory();
    const std::string journal = scratch + "/journal";
    std::ofstream(scratch + "/board") << script;
    setenv("MARL_SIM_BOARD", (scratch + "/board").c_str(), 1);
    setenv("MARL_SIM_JOURNAL", journal.c_str(), 1);
    setenv("MARL_SIM_FOR", std::to_string(options.seconds).c_str(), 1);
    unsetenv("MARL_SIM_ROOT");
    if (!options.root.empty()) setenv("MARL_SIM_ROOT", options.root.c_str(), 1);
    const std::string output = options.keep_output ? scratch + "/output" : "/dev/null";
    const int status = spawn(command_line(program, options), output, options);
    Outcome result{Journal(read_file(journal)), status, options.keep_output ? read_file(output) : ""};
    std::filesystem::remove_all(scratch);
    return result;
}

bool in_real_time(const std::string& board) {
    const char* const time = getenv("MARL_SIM_TIME");
    if (time != nullptr && std::string(time) == "real") return true;
    setenv("MARL_SIM_TIME", "real", 1);
    setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
    const auto& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test.test_suite_name() + "." + test.name();
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").filename();
    const auto outcome =
        run("tests/" + program, board, {.seconds = 100, .arguments = {filter}, .keep_output = true});
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    return false;
}

}  // namespace scenario
