// How far a long command is: a bar with rate and remaining time where the standard error is a terminal, nothing elsewhere.
#pragma once

#include <cstdint>

namespace tool {

// Of the clock that nobody sets.
int64_t now_in_ms();

class Progress {
  public:
    Progress(const char* what, uint32_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void advance(uint32_t bytes);

    // Takes the line away, for what the library is about to print; the next advance() draws it again.
    void hide();

  private:
    void draw(int64_t now_ms);

    const char* what_;
    uint32_t total_;
    uint32_t done_ = 0;
    bool is_shown_;
    bool is_drawn_ = false;
    int64_t start_ms_;
    int64_t drawn_ms_;
};

}  // namespace tool
