#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace tool {
namespace {

constexpr int kWidth = 30;
constexpr int64_t kPauseMs = 100;
constexpr double kMiB = 1 << 20;

}  // namespace

int64_t now_in_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

Progress::Progress(const char* what, uint32_t total)
    : what_(what),
      total_(total),
      is_shown_(isatty(STDERR_FILENO) != 0),
      start_ms_(now_in_ms()),
      drawn_ms_(start_ms_) {
    if (is_shown_) draw(start_ms_);
}

// When the work is over or has failed, what is to be said then stands alone.
Progress::~Progress() { hide(); }

void Progress::hide() {
    if (is_drawn_) [[maybe_unused]]
        const ssize_t n = write(STDERR_FILENO, "\r\033[K", 4);
    is_drawn_ = false;
}

void Progress::advance(uint32_t bytes) {
    done_ += bytes;
    if (!is_shown_) return;
    const int64_t now = now_in_ms();
    if (is_drawn_ && now - drawn_ms_ < kPauseMs && done_ < total_) return;
    drawn_ms_ = now;
    draw(now);
}

void Progress::draw(int64_t now_ms) {
    is_drawn_ = true;
    const double part = total_ > 0 ? static_cast<double>(done_) / total_ : 1;
    const double seconds = static_cast<double>(std::max<int64_t>(now_ms - start_ms_, 1)) / 1000;
    const double rate = done_ / seconds;
    const int filled = static_cast<int>(part * kWidth);
    char line[160];
    int size = snprintf(line, sizeof line, "\r%s [%.*s%*s] %3.0f %% of %.1f MiB, %.1f MiB/s", what_, filled,
                        "##############################", kWidth - filled, "", part * 100, total_ / kMiB,
                        rate / kMiB);
    if (done_ > 0 && size > 0) {
        size += snprintf(line + size, sizeof line - static_cast<size_t>(size), ", %.0f s left\033[K",
                         (total_ - done_) / rate);
    }
    const auto length = std::min(static_cast<size_t>(std::max(size, 0)), sizeof line - 1);
    [[maybe_unused]] const ssize_t n = write(STDERR_FILENO, line, length);
}

}  // namespace tool
