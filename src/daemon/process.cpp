#include "daemon/process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "base/console.h"

namespace sentrel {
namespace {

// A socket cannot be opened anew; what it is connected to is the daemon's own log.
void make_nonblocking(int stream) {
    struct stat info {};
    if (fstat(stream, &info) < 0) return;
    if (S_ISSOCK(info.st_mode)) {
        const int flags = fcntl(stream, F_GETFL);
        if (flags >= 0) fcntl(stream, F_SETFL, flags | O_NONBLOCK);
    } else if (S_ISCHR(info.st_mode) || S_ISFIFO(info.st_mode)) {
        const int own_fd = marl::reopen_stream(stream);
        if (own_fd < 0) return;
        dup2(own_fd, stream);
        close(own_fd);
    }
}

}  // namespace

void prepare_process() {
    marl::fill_closed_streams();
    make_nonblocking(STDOUT_FILENO);
    make_nonblocking(STDERR_FILENO);
    signal(SIGHUP, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGCHLD, SIG_DFL);
}

}  // namespace sentrel
