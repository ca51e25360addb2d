#include "base/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>

namespace marl {
namespace {

bool is_ready(int fd) {
    pollfd console{fd, POLLOUT, 0};
    return poll(&console, 1, 0) == 1 && (console.revents & POLLOUT) != 0;
}

}  // namespace

int reopen_stream(int stream) {
    const char* link = stream == STDOUT_FILENO ? "/proc/self/fd/1" : "/proc/self/fd/2";
    return open(link, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

// A new descriptor is the lowest that is free, so each of these takes the place that was found closed.
void fill_closed_streams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDWR) < 0) return;
    }
}

Console::Console(int stream) : fd_(stream) {
    const int flags = fcntl(stream, F_GETFL);
    struct stat info {};
    if (flags < 0 || (flags & O_NONBLOCK) != 0 || fstat(stream, &info) < 0) return;
    if (S_ISSOCK(info.st_mode)) {
        kind_ = Kind::Socket;
    } else if (S_ISCHR(info.st_mode) || S_ISFIFO(info.st_mode)) {
        const int own_fd = reopen_stream(stream);
        owned_ = own_fd >= 0;
        kind_ = owned_ ? Kind::Plain : Kind::Shared;
        if (owned_) fd_ = own_fd;
    }
}

Console::~Console() {
    if (owned_) close(fd_);
}

ssize_t Console::offer(const char* text, size_t size) const {
    if (kind_ == Kind::Socket) return sendto(fd_, text, size, MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0);
    // A description that could not be opened anew may block, so it is asked first.
    if (kind_ == Kind::Shared && !is_ready(fd_)) {
        errno = EAGAIN;
        return -1;
    }
    return write(fd_, text, size);
}

WriteSignalsHeld::WriteSignalsHeld() {
    sigemptyset(&held_);
    for (const int signal : {SIGPIPE, SIGXFSZ, SIGTTOU}) sigaddset(&held_, signal);
    pthread_sigmask(SIG_BLOCK, &held_, &before_);
}

WriteSignalsHeld::~WriteSignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

// A signal of this kind goes to the thread that wrote, so none of somebody else's is taken, unless one was
// pending for the process already.
void WriteSignalsHeld::discard_raised() const {
    const timespec at_once{};
    if (errno == EPIPE || errno == EFBIG) sigtimedwait(&held_, nullptr, &at_once);
}

}  // namespace marl
