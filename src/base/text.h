// Bounded text: copies that cannot run over, numbers as the C library reads them, small files line by line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace marl {

// Copies as much of `text` as fits into `size` bytes, NUL included; nothing when `size` is 0.
void copy_text(char* out, size_t size, std::string_view text);

// The text in a fixed field that has a NUL only when it is shorter than the field.
std::string_view field_text(const char* field, size_t size);

// Up to the first `count` characters, and what follows them. std::string_view::substr throws, which drags in
// a runtime that the device does not have.
constexpr std::string_view first_of(std::string_view text, size_t count) {
    return {text.data(), count < text.size() ? count : text.size()};
}

constexpr std::string_view rest_of(std::string_view text, size_t count) {
    text.remove_prefix(count < text.size() ? count : text.size());
    return text;
}

// The first word between blanks, tabs and line ends; empty when there is none.
std::string_view first_word(std::string_view text);

// Decimal as atoi reads it: the low 32 bits of what is parsed, 0 for text that is no number.
int32_t decimal(const char* text);

// Hexadecimal as strtoull reads it, 0 for text that is no number.
uint64_t hexadecimal(const char* text);

// Reads a text file in pieces of lines, as fgets does but without the heap: the supervision loop reads /proc
// with it in every pass. Does not own the descriptor.
class LineReader {
  public:
    explicit LineReader(int fd) : fd_(fd) {}

    // The next piece: up to and including a newline, at most `size` - 1 characters, NUL-terminated. False at
    // the end of the file or at an error, which also takes the piece that it came in the middle of: a value
    // cut short is a wrong value.
    bool next(char* line, size_t size);

    // Whether it ended with an error, which is in errno, instead of the end of the file. Nothing is
    // read after one.
    bool failed() const { return failed_; }

  private:
    bool fill();

    int fd_;
    size_t start_ = 0;
    size_t end_ = 0;
    bool failed_ = false;
    char buffer_[256];
};

}  // namespace marl
