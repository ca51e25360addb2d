#include "results.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tool::results {
namespace {

// High enough to be nobody else's, low enough for every limit.
constexpr int kDescriptor = 63;

struct {
    bool json;
    int descriptor;  // negative when the program has been started without a standard output
    int error;       // of the first write that failed
    bool is_open;    // the object that all is in has been begun
    bool is_first;   // no member of the present object or list has been written
    int depth;       // of objects and lists around
    int silent;      // text is left out
    size_t used;
    char buffer[4096];
} constinit state{false, -1, 0, false, true, 0, 0, 0, {}};

void append(const char* text, size_t size) {
    while (size > 0) {
        if (state.used == sizeof state.buffer) flush();
        const size_t part = std::min(size, sizeof state.buffer - state.used);
        memcpy(state.buffer + state.used, text, part);
        state.used += part;
        text += part;
        size -= part;
    }
}

void append(const char* text) { append(text, strlen(text)); }

// Bytes above ASCII are taken for Latin-1, so that whatever the flash holds makes JSON.
void append_quoted(const char* text) {
    append("\"");
    for (; *text != '\0'; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        char escaped[8];
        if (byte == '"' || byte == '\\') {
            snprintf(escaped, sizeof escaped, "\\%c", byte);
        } else {
            snprintf(escaped, sizeof escaped, byte < ' ' || byte > '~' ? "\\u%04x" : "%c", byte);
        }
        append(escaped);
    }
    append("\"");
}

void start_member(const char* name) {
    if (!state.is_open) append("{");
    state.is_open = true;
    if (!state.is_first) append(", ");
    state.is_first = false;
    if (name == nullptr) return;
    append_quoted(name);
    append(": ");
}

void indent() {
    for (int i = 0; i < state.depth; ++i) append("  ");
}

void print_field(const char* name, const char* text) {
    if (state.silent > 0) return;
    indent();
    char padded[40];
    snprintf(padded, sizeof padded, "%-*s ", 23 - 2 * state.depth, name != nullptr ? name : "-");
    append(padded);
    append(text);
    append("\n");
}

void open_bracket(const char* name, const char* bracket) {
    if (state.json) {
        start_member(name);
        append(bracket);
        state.is_first = true;
    } else if (state.silent == 0) {
        indent();
        append(name != nullptr ? name : "-");
        append("\n");
    }
    ++state.depth;
}

void close_bracket(const char* bracket) {
    --state.depth;
    if (!state.json) return;
    append(bracket);
    state.is_first = false;
}

}  // namespace

void take_standard_output() {
    state.descriptor = dup3(STDOUT_FILENO, kDescriptor, O_CLOEXEC);
    if (dup2(STDERR_FILENO, STDOUT_FILENO) < 0) close(STDOUT_FILENO);
}

void use_json() { state.json = true; }
bool is_json() { return state.json; }

void print(const char* format, ...) {
    if (state.json) return;
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    const int size = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    append(text, std::min(sizeof text - 1, static_cast<size_t>(std::max(size, 0))));
}

void raw(const void* data, size_t size) { append(static_cast<const char*>(data), size); }

void field(const char* name, const char* text) {
    if (!state.json) return print_field(name, text != nullptr ? text : "-");
    start_member(name);
    text != nullptr ? append_quoted(text) : append("null");
}

void field(const char* name, int64_t number) {
    char text[24];
    snprintf(text, sizeof text, "%" PRId64, number);
    if (!state.json) return print_field(name, text);
    start_member(name);
    append(text);
}

void flag(const char* name, bool value) {
    if (!state.json) return print_field(name, value ? "yes" : "no");
    start_member(name);
    append(value ? "true" : "false");
}

void begin(const char* name) { open_bracket(name, "{"); }
void end() { close_bracket("}"); }
void begin_list(const char* name) { open_bracket(name, "["); }
void end_list() { close_bracket("]"); }

JsonOnly::JsonOnly() { ++state.silent; }
JsonOnly::~JsonOnly() { --state.silent; }

bool end_object() {
    if (state.is_open) append("}\n");
    state.is_open = false;
    state.is_first = true;
    return flush();
}

bool flush() {
    for (size_t done = 0; done < state.used && state.error == 0;) {
        const ssize_t n = write(state.descriptor, state.buffer + done, state.used - done);
        if (n > 0) done += static_cast<size_t>(n);
        if (n < 0 && errno != EINTR) state.error = errno;
    }
    state.used = 0;
    if (state.error != 0) errno = state.error;
    return state.error == 0;
}

}  // namespace tool::results
