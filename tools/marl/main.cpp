// marl: what the board is and has, by the hardware library.
//
// The library identifies the board, says so on the standard output and may end the process, all before main().
// So the command line is looked at before even that: results get a descriptor of their own, and help, a wrong
// usage and a completion neither touch the board nor need one.
#include <fcntl.h>
#include <libmarl.h>
#include <unistd.h>

#include <csignal>

#include "command.h"
#include "messages.h"
#include "parse.h"
#include "results.h"

namespace {

using namespace tool;

constinit Request request;

void silence_library() {
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nothing < 0) return;
    dup2(nothing, STDOUT_FILENO);
    close(nothing);
}

// Runs before the initialisers of all libraries, of the C library too, which has not set `environ` by then.
void start(int argc, char** argv, char** environment) {
    environ = environment;
    results::take_standard_output();
    Exit status = kDone;
    const bool has_command = parse(argc, argv, request, status);
    if (has_command && request.command->needs_board) {
        if (request.quiet) silence_library();
        if (request.json) results::use_json();
        return;
    }
    if (has_command) status = request.command->run(request);
    _exit(results::flush() ? status : kFailed);
}

__attribute__((section(".preinit_array"), used)) void (*const before_everything)(int, char**, char**) = start;

}  // namespace

int main() {
    signal(SIGPIPE, SIG_IGN);
    if (!may_destroy(request)) return kRefused;
    const Exit status = request.command->run(request);
    if (!results::end_object()) return failed_system("standard output");
    return status;
}
