// Consoles of all kinds, as their writer and their reader have them.
#pragma once

#include <string>

namespace console {

enum class Kind { CookedTerminal, RawTerminal, Pipe, Socket };

class Console {
  public:
    explicit Console(Kind kind);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    int writer() const { return writer_; }
    void become_streams() const;  // standard output and error of this process
    void fill() const;            // until it takes nothing any more
    void hang_up();               // nobody reads it from now on

    // What is there to be read, but no more than `most` bytes.
    std::string take(size_t most) const;

  private:
    int reader_;
    int writer_;
};

}  // namespace console
