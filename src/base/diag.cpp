#include "base/diag.h"

#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>

#include "base/console.h"

namespace marl::diag {
namespace {

constexpr const char* kError = "\033[0;32;31m[libmarl] ERROR";
constexpr const char* kWarn = "\033[1;33m[libmarl] WARN";
constexpr const char* kColourEnd = "\033[m";

constexpr int kLookMs = 5;        // how often a console that is full is tried again
constexpr int kIdleLooks = 20;    // 100 ms without a character taken
constexpr int kLooksInAll = 200;  // a second

// Which streams did not take the last message, by whoever writes; and the stack that shares its errno, by the
// daemon before the stack is used.
struct {
    std::atomic<bool> stuck[STDERR_FILENO + 1];
    std::atomic<uintptr_t> shared_from = 0;
    std::atomic<uintptr_t> shared_size = 0;
} constinit g_diag;

class ErrnoKeeper {
  public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() {
        // Whoever sees one of the two without the other is elsewhere.
        const uintptr_t from = g_diag.shared_from.load(std::memory_order_relaxed);
        const uintptr_t size = g_diag.shared_size.load(std::memory_order_relaxed);
        if (reinterpret_cast<uintptr_t>(this) - from >= size) errno = saved_;
    }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int saved_;
};

// How long a message may go on waiting for its console.
class Patience {
  public:
    explicit Patience(bool stuck) : looks_left_(stuck ? 0 : kLooksInAll), idle_left_(kIdleLooks) {}

    void note_progress() { idle_left_ = kIdleLooks; }

    // Waits a moment; false when there was enough of that. The kernel is not asked whether there is room: for
    // a terminal it says so only when most of what waits has gone out.
    bool wait() {
        if (looks_left_ == 0 || idle_left_ == 0) return false;
        --looks_left_;
        --idle_left_;
        poll(nullptr, 0, kLookMs);
        return true;
    }

  private:
    int looks_left_;
    int idle_left_;
};

int put(int stream, const char* text, size_t length) {
    std::atomic<bool>& stuck = g_diag.stuck[stream];
    const WriteSignalsHeld signals;
    const Console console(stream);
    Patience patience(stuck.load(std::memory_order_relaxed));
    size_t done = 0;
    bool full = false;
    while (done < length && !full) {
        const ssize_t n = console.offer(text + done, length - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
            patience.note_progress();
        } else if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
            full = !patience.wait();
        } else {
            if (n < 0) signals.discard_raised();
            break;
        }
    }
    stuck.store(full, std::memory_order_relaxed);
    return done > 0 ? static_cast<int>(done) : -1;
}

// The length that snprintf's result means for a buffer of `size` bytes.
size_t fitted(int printed, size_t size) {
    if (printed < 0) return 0;
    return static_cast<size_t>(printed) < size ? static_cast<size_t>(printed) : size - 1;
}

// Formats into `size` bytes and returns the length. A text that is cut keeps the newline at its end, and a
// colour's end behind that: they are put there once more, which changes nothing in a text that is whole.
size_t fit(char* buffer, size_t size, const char* format, va_list arguments) {
    const int printed = vsnprintf(buffer, size, format, arguments);
    const size_t length = fitted(printed, size);
    const char* tail = strrchr(format, '\n');
    if (tail == nullptr || strchr(tail, '%') != nullptr || strlen(tail) > length) return length;
    memcpy(buffer + length - strlen(tail), tail, strlen(tail));
    return length;
}

int put_formatted(int stream, const char* format, va_list arguments) {
    char buffer[kMessageMax];
    return put(stream, buffer, fit(buffer, sizeof buffer, format, arguments));
}

int put_coloured(const char* heading, const Site& site, const char* format, va_list arguments) {
    char buffer[kMessageMax];
    const size_t room = sizeof buffer - strlen(kColourEnd);
    size_t used = fitted(
        snprintf(buffer, room, "%s (%s|%s|%d): ", heading, site.source, site.function, site.line), room);
    used += fit(buffer + used, room - used, format, arguments);
    memcpy(buffer + used, kColourEnd, strlen(kColourEnd));
    return put(STDOUT_FILENO, buffer, used + strlen(kColourEnd));
}

}  // namespace

void share_errno_on(const void* stack, size_t size) {
    g_diag.shared_from.store(reinterpret_cast<uintptr_t>(stack), std::memory_order_relaxed);
    g_diag.shared_size.store(size, std::memory_order_relaxed);
}

int out(const char* format, ...) {
    const ErrnoKeeper keeper;
    va_list arguments;
    va_start(arguments, format);
    const int written = put_formatted(STDOUT_FILENO, format, arguments);
    va_end(arguments);
    return written;
}

int err(const char* format, ...) {
    const ErrnoKeeper keeper;
    va_list arguments;
    va_start(arguments, format);
    const int written = put_formatted(STDERR_FILENO, format, arguments);
    va_end(arguments);
    return written;
}

int line(const char* text) { return out("%s\n", text); }

// strerrordesc_np, because strerror and its relatives look for a translation behind a lock.
int system_error(const char* tag, int error) {
    const char* separator = *tag != '\0' ? ": " : "";
    const char* text = strerrordesc_np(error);
    return text != nullptr ? err("%s%s%s\n", tag, separator, text)
                           : err("%s%sUnknown error %d\n", tag, separator, error);
}

int library_system_error(const char* tag, int error) {
    out("[libmarl] [libmarl] ");
    return system_error(tag, error);
}

int error(const Site& site, const char* format, ...) {
    const ErrnoKeeper keeper;
    va_list arguments;
    va_start(arguments, format);
    const int written = put_coloured(kError, site, format, arguments);
    va_end(arguments);
    return written;
}

int warn(const Site& site, const char* format, ...) {
    const ErrnoKeeper keeper;
    va_list arguments;
    va_start(arguments, format);
    const int written = put_coloured(kWarn, site, format, arguments);
    va_end(arguments);
    return written;
}

}  // namespace marl::diag
