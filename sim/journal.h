// The record of everything that happened on the board: one line an event.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace sim::record {

// A file, or null for the memory only; how the lines begin that are kept, or null for all.
void open(const char* target, const char* only);
bool is_open();  // somebody reads it while the board runs, or afterwards
void clear();
std::string text();

constexpr size_t kBytesShown = 16;
constexpr size_t kTextShown = 64;  // of an ordinary file
constexpr size_t kFrameShown = 1518;

// One line being put together; it is written when it goes out of scope.
class Line {
  public:
    explicit Line(const char* who);
    ~Line();
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    Line& add(const char* format, ...) __attribute__((format(printf, 2, 3)));
    Line& bytes(const void* data, size_t size, size_t shown = kBytesShown);
    Line& quoted(const char* text, size_t size);
    // " -> ENOENT" when the result is a negated error number, else nothing.
    Line& failure(int64_t result);

  private:
    static constexpr size_t kSize = 5120;
    char text_[kSize];
    size_t used_ = 0;
    bool dropped_;
};

}  // namespace sim::record
