#include "control.h"

#include <sys/un.h>

#include "board.h"
#include "clock.h"
#include "launch/run.h"
#include "real.h"
#include "script.h"
#include "words.h"

namespace sim::control {
namespace {

struct Client {
    int fd = -1;
    char text[1024];  // of a line that has begun
    size_t used;
};

Client clients[4];
int listener = -1;
pid_t owner = 0;

// Out of the way of the program's descriptors.
int put_away(int fd) {
    const int kept = fd < 0 ? fd : real.fcntl(fd, F_DUPFD_CLOEXEC, launch::kFirstDescriptor);
    real.close(fd);
    return kept;
}

void answer(int fd, const char* line) {
    const bool asks = strcmp(line, "help") == 0;
    const bool done = asks || script::tell(line);
    char text[sizeof Words::problem + 16];
    snprintf(text, sizeof text, "%s%s\n",
             asks   ? "ok: "
             : done ? "ok"
                    : "error: ",
             asks   ? script::known_lines()
             : done ? ""
                    : Words::problem);
    real.sendto(fd, text, strlen(text), MSG_DONTWAIT | MSG_NOSIGNAL, nullptr, 0);
}

// False when the client is gone, or writes what is no line.
bool serve(Client& client) {
    const ssize_t got =
        recv(client.fd, client.text + client.used, sizeof client.text - client.used, MSG_DONTWAIT);
    if (got <= 0) return got < 0 && errno == EAGAIN;
    client.used += static_cast<size_t>(got);
    char* line = client.text;
    for (char* end; (end = static_cast<char*>(memchr(line, '\n', client.used))) != nullptr; line = end + 1) {
        *end = '\0';
        client.used -= static_cast<size_t>(end + 1 - line);
        answer(client.fd, line);
    }
    memmove(client.text, line, client.used);
    return client.used < sizeof client.text;
}

}  // namespace

void open(const char* path) {
    sockaddr_un address{AF_UNIX, {}};
    if (path == nullptr) return;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", path);
    real.unlink(address.sun_path);
    owner = getpid();
    listener = put_away(real.socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0));
    if (real.bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 4) != 0)
        board::end("cannot listen at its control socket", board::kBadScript);
}

// A child that borrows the memory has descriptors of its own.
void poll() {
    if (listener < 0 || getpid() != owner) return;
    for (Client& client : clients) {
        if (client.fd < 0) client = {put_away(accept(listener, nullptr, nullptr)), {}, 0};
        if (client.fd < 0 || serve(client)) continue;
        real.close(client.fd);
        client.fd = -1;
    }
}

}  // namespace sim::control
