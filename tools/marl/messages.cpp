#include "messages.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tool {
namespace {

volatile sig_atomic_t interrupted = 0;

void write_message(const char* format, va_list arguments, int error) {
    char text[1024] = "marl: ";
    const size_t prefix = strlen(text);
    const size_t room = sizeof text - prefix - 1;
    int size = vsnprintf(text + prefix, room, format, arguments);
    size_t used = prefix + std::min(static_cast<size_t>(std::max(size, 0)), room - 1);
    if (error != 0) {
        size = snprintf(text + used, sizeof text - used - 1, ": %s", strerror(error));
        used = std::min(used + static_cast<size_t>(std::max(size, 0)), sizeof text - 2);
    }
    text[used++] = '\n';
    [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, text, used);
}

}  // namespace

#define TOOL_WRITE_MESSAGE(error)                  \
    const int known_error = error;                 \
    va_list arguments;                             \
    va_start(arguments, format);                   \
    write_message(format, arguments, known_error); \
    va_end(arguments)

void note(const char* format, ...) { TOOL_WRITE_MESSAGE(0); }

Exit failed(const char* format, ...) {
    TOOL_WRITE_MESSAGE(0);
    return kFailed;
}

Exit refused(const char* format, ...) {
    TOOL_WRITE_MESSAGE(0);
    return kRefused;
}

Exit failed_system(const char* format, ...) {
    TOOL_WRITE_MESSAGE(errno);
    return kFailed;
}

bool may_destroy(const Request& request) {
    const Command& command = *request.command;
    if (command.danger == nullptr || request.yes) return true;
    if (command.is_dangerous != nullptr && !command.is_dangerous(request)) return true;
    if (isatty(STDIN_FILENO) == 0) {
        refused("%s %s: say --yes if it shall", command.name, command.danger);
        return false;
    }
    char question[256];
    const int size =
        snprintf(question, sizeof question, "marl: %s %s. Go on? [y/N] ", command.name, command.danger);
    char answer[16] = {};
    if (write(STDERR_FILENO, question, static_cast<size_t>(size)) < 0) return false;
    if (read(STDIN_FILENO, answer, sizeof answer - 1) <= 0) return false;
    answer[strcspn(answer, "\r\n")] = '\0';
    return strcasecmp(answer, "y") == 0 || strcasecmp(answer, "yes") == 0;
}

void watch_for_interrupts() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

bool is_interrupted() { return interrupted != 0; }

}  // namespace tool
