// Consoles of all kinds, as their writer and their reader have them.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <string>
#include <utility>

namespace console {

enum class Kind { CookedTerminal, RawTerminal, Pipe, Socket };
inline constexpr Kind kKinds[] = {Kind::CookedTerminal, Kind::RawTerminal, Kind::Pipe, Kind::Socket};

class Console {
  public:
    explicit Console(Kind kind) {
        if (kind == Kind::Pipe) {
            EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0);
        } else if (kind == Kind::Socket) {
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
        } else {
            // By the master's own request: terminals have no names on the board.
            ends_[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            unlockpt(ends_[0]);
            ends_[1] = ioctl(ends_[0], TIOCGPTPEER, O_RDWR | O_NOCTTY | O_CLOEXEC);
            termios settings{};
            EXPECT_EQ(tcgetattr(ends_[1], &settings), 0) << "no terminal to be had";
            if (kind == Kind::RawTerminal) cfmakeraw(&settings);
            tcsetattr(ends_[1], TCSANOW, &settings);
        }
        fcntl(ends_[0], F_SETFL, O_NONBLOCK);
    }
    ~Console() {
        hang_up();
        close(ends_[1]);
    }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    int writer() const { return ends_[1]; }
    // Until it takes nothing any more, or no more than `room` characters.
    void fill(size_t room = 0) const {
        const int flags = fcntl(writer(), F_GETFL);
        fcntl(writer(), F_SETFL, flags | O_NONBLOCK);
        size_t total = 0;
        while (put()) ++total;
        if (room > 0) {
            for (size_t taken = 0; taken < total;) taken += take(4096).size();
            for (size_t i = 0; i + room < total; ++i) EXPECT_TRUE(put());
        }
        fcntl(writer(), F_SETFL, flags);
    }
    // Nobody reads it from now on.
    void hang_up() { close(std::exchange(ends_[0], -1)); }
    // What is there to be read, but no more than `most` bytes.
    std::string take(size_t most) const {
        std::string text(most, '\0');
        const ssize_t n = read(ends_[0], text.data(), most);
        text.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return text;
    }

  private:
    // One character. A terminal is full when the kernel had the time to hand on what it has, and still takes none.
    bool put() const {
        for (int tries = 0; tries < 50; ++tries) {
            if (write(writer(), "x", 1) > 0) return true;
            poll(nullptr, 0, 1);
        }
        return false;
    }

    int ends_[2] = {-1, -1};  // the reader's and the writer's
};

// Standard output and error of this process.
inline void become_streams(int fd) {
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
}
// Closes those of the three standard streams whose bit is set.
inline void close_streams(unsigned closed) {
    for (int fd = 0; fd < 3; ++fd) {
        if ((closed >> fd & 1) != 0) close(fd);
    }
}

}  // namespace console
