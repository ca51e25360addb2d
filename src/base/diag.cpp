#include "base/diag.h"

#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace marl::diag {
namespace {

constexpr const char* kError = "\033[0;32;31m[libmarl] ERROR";
constexpr const char* kWarn = "\033[1;33m[libmarl] WARN";
constexpr const char* kColourEnd = "\033[m";

class ErrnoKeeper {
  public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int saved_;
};

// The reader of the console may go between the look and the write; the signal of that must not end a program
// that only meant to print.
class SigpipeBlocker {
  public:
    SigpipeBlocker() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~SigpipeBlocker() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SigpipeBlocker(const SigpipeBlocker&) = delete;
    SigpipeBlocker& operator=(const SigpipeBlocker&) = delete;

    void discard_raised() const {
        const timespec at_once{};
        sigtimedwait(&pipe_, nullptr, &at_once);
    }

  private:
    sigset_t pipe_;
    sigset_t before_;
};

int put(int fd, const char* text, size_t length) {
    const SigpipeBlocker blocker;
    size_t done = 0;
    while (done < length && takes_output(fd)) {
        const ssize_t n = write(fd, text + done, length - done);
        if (n > 0) {
            done += static_cast<size_t>(n);
        } else if (n == 0 || errno != EINTR) {
            if (n < 0 && errno == EPIPE) blocker.discard_raised();
            break;
        }
    }
    return done > 0 ? static_cast<int>(done) : -1;
}

// The length that snprintf's result means for a buffer of `size` bytes.
size_t fitted(int printed, size_t size) {
    if (printed < 0) return 0;
    return static_cast<size_t>(printed) < size ? static_cast<size_t>(printed) : size - 1;
}

int put_formatted(int fd, const char* format, va_list arguments) {
    char buffer[kMessageMax];
    const int printed = vsnprintf(buffer, sizeof buffer, format, arguments);
    return put(fd, buffer, fitted(printed, sizeof buffer));
}

int put_coloured(const char* heading, const Site& site, const char* format, va_list arguments) {
    char buffer[kMessageMax];
    const size_t room = sizeof buffer - strlen(kColourEnd);
    size_t used = fitted(
        snprintf(buffer, room, "%s (%s|%s|%d): ", heading, site.source, site.function, site.line), room);
    used += fitted(vsnprintf(buffer + used, room - used, format, arguments), room - used);
    memcpy(buffer + used, kColourEnd, strlen(kColourEnd));
    return put(STDOUT_FILENO, buffer, used + strlen(kColourEnd));
}

}  // namespace

bool takes_output(int fd) {
    pollfd console{fd, POLLOUT, 0};
    return poll(&console, 1, 0) == 1 && console.revents == POLLOUT;
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
    const char* text = strerrordesc_np(error);
    return err("%s%s%s\n", tag, *tag != '\0' ? ": " : "", text != nullptr ? text : "Unknown error");
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
