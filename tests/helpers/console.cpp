#include "helpers/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace console {

Console::Console(Kind kind) {
    int ends[2] = {-1, -1};
    if (kind == Kind::Pipe) {
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    } else if (kind == Kind::Socket) {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    } else {
        // By the master's own request: terminals have no names on the board.
        ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        unlockpt(ends[0]);
        ends[1] = ioctl(ends[0], TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_GE(ends[1], 0) << "no terminal to be had";
        termios settings{};
        tcgetattr(ends[1], &settings);
        if (kind == Kind::RawTerminal) cfmakeraw(&settings);
        tcsetattr(ends[1], TCSANOW, &settings);
    }
    reader_ = ends[0];
    writer_ = ends[1];
    fcntl(reader_, F_SETFL, O_NONBLOCK);
}

Console::~Console() {
    close(reader_);
    close(writer_);
}

void Console::become_streams() const {
    dup2(writer_, STDOUT_FILENO);
    dup2(writer_, STDERR_FILENO);
}

void Console::fill() const {
    const int flags = fcntl(writer_, F_GETFL);
    fcntl(writer_, F_SETFL, flags | O_NONBLOCK);
    for (const size_t size : {size_t{4096}, size_t{1}}) {
        const std::string block(size, 'x');
        while (write(writer_, block.data(), block.size()) > 0) {
        }
    }
    fcntl(writer_, F_SETFL, flags);
}

void Console::hang_up() {
    close(reader_);
    reader_ = -1;
}

std::string Console::take(size_t most) const {
    std::string text(most, '\0');
    const ssize_t n = read(reader_, text.data(), text.size());
    text.resize(n > 0 ? static_cast<size_t>(n) : 0);
    return text;
}

}  // namespace console
