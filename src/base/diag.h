// Every message of the library and the daemon leaves through here: it is formatted into a bounded buffer
// on the stack and handed to the kernel in one write, so lines stay whole, standard output and standard
// error keep their order, nothing waits in a buffer when the board resets, and the small stack of a clone
// task is enough.
//
// A console that is read gets every message whole, however slow it is. One that takes nothing for 100 ms, or
// not all of a message within a second, counts as stuck: the message is cut there, and those that follow are
// offered without waiting until one goes through again. Nobody waits longer, and no signal of the console
// ends or stops a program. A console that is closed or gone drops messages at once.
//
// No call here changes errno. All are safe from any thread and from a clone task.
#pragma once

#include <cstddef>

namespace marl::diag {

// Longest message, colour codes included, and a NUL; what is longer is cut, but for the newline at its end.
inline constexpr unsigned kMessageMax = 512;

// Where a coloured line comes from. The line is that of the call unless the message has a line of its own.
struct Site {
    const char* source;
    const char* function;
    int line;

    constexpr Site(const char* source_name, const char* function_name, int line_number = __builtin_LINE())
        : source(source_name), function(function_name), line(line_number) {}
};

// Tells that code on this stack shares its errno with another task, as a clone task does with its creator.
// Keeping errno there would put an old value over the other's new one, so on this stack messages leave it as
// their system calls did. One such stack at a time.
void share_errno_on(const void* stack, size_t size);

// All return the number of bytes written, or -1 when nothing of the message was.

// Standard output and standard error, exactly as given.
[[gnu::format(printf, 1, 2)]] int out(const char* format, ...);
[[gnu::format(printf, 1, 2)]] int err(const char* format, ...);

// Standard output, followed by a newline.
int line(const char* text);

// "TAG: system error text" and a newline on standard error; an empty tag leaves the bare text.
int system_error(const char* tag, int error);

// The library's form of the above, with its prefix on standard output.
int library_system_error(const char* tag, int error);

// The coloured ERROR and WARN lines, on standard output. A newline only where `format` has one.
[[gnu::format(printf, 2, 3)]] int error(const Site& site, const char* format, ...);
[[gnu::format(printf, 2, 3)]] int warn(const Site& site, const char* format, ...);

}  // namespace marl::diag
