// Scripts in a test program, which is its own launcher.
#include <unistd.h>

#include <cstdio>

#include "compiler.h"
#include "sim.h"

namespace sim {
namespace {

script::Compiler compiler(1);

// A test must not go on with a board that it did not ask for.
std::string checked(std::string orders) {
    for (const auto& [line, problem] : compiler.problems())
        fprintf(stderr, "simulated board: script:%u: %s\n", line, problem.c_str());
    if (!compiler.problems().empty()) _exit(2);
    return orders;
}

}  // namespace

void load(const char* script) {
    compiler = script::Compiler(1);
    start_anew(checked(compiler.start(script)));
}

void restart(const char* script) {
    compiler = script::Compiler(2);
    start_again(checked(compiler.start(script)));
}

void run(const char* script_lines) { follow(checked(compiler.compile(script_lines))); }

}  // namespace sim
