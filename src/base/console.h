// Standard output and standard error as places that can be slow, stuck, closed or full
// without stopping anybody.
//
// A terminal that nobody reads blocks its writer for ever, and poll(2) does not tell in time: in its usual
// mode it is ready with room for one character and then blocks on a newline, which takes two; and on a
// healthy serial line it is ready only while few characters wait. So terminals and pipes are written through
// a description of their own, non-blocking, opened anew through the process's descriptor link. The stream
// itself is shared with whoever started the process and stays as it is. Regular files keep their description,
// or a redirected one would lose its place.
//
// Safe from any thread, from a clone task, and in a child of vfork() once constructed.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstddef>

namespace marl {

// Opens a standard stream (STDOUT_FILENO, STDERR_FILENO) once more, non-blocking and close-on-exec. The new
// descriptor, or -1 with errno set.
int reopen_stream(int stream);

// Puts /dev/null in the place of every standard stream that is closed, so that neither a device nor what a
// shell command opens takes its number.
void fill_closed_streams();

// One of the two streams, for the length of a message.
class Console {
  public:
    explicit Console(int stream);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Writes once and never waits: the bytes that were taken, or -1 with errno set, EAGAIN when there was no
    // room. The caller holds the signals of a failed write back (WriteSignalsHeld).
    ssize_t offer(const char* text, size_t size) const;

  private:
    enum class Kind { Plain, Socket, Shared };

    int fd_;
    bool owned_ = false;
    Kind kind_ = Kind::Plain;
};

// Holds back, for the length of a scope, the signals by which the kernel answers a write: nobody reads any
// more, the file is at its size limit, a terminal wants no output from the background. A message must not end
// a program, nor stop it.
class WriteSignalsHeld {
  public:
    WriteSignalsHeld();
    ~WriteSignalsHeld();
    WriteSignalsHeld(const WriteSignalsHeld&) = delete;
    WriteSignalsHeld& operator=(const WriteSignalsHeld&) = delete;

    // To be called after a write that failed: what it raised is forgotten.
    void discard_raised() const;

  private:
    sigset_t held_;
    sigset_t before_;
};

}  // namespace marl
