#include "base/text.h"

#include <string.h>

#include <algorithm>
#include <cstdlib>

#include "base/fd.h"

namespace marl {

void copy_text(char* out, size_t size, std::string_view text) {
    if (size == 0) return;
    const size_t length = std::min(text.size(), size - 1);
    std::copy_n(text.data(), length, out);
    out[length] = '\0';
}

std::string_view field_text(const char* field, size_t size) { return {field, strnlen(field, size)}; }

std::string_view first_word(std::string_view text) {
    constexpr std::string_view kWhite = " \t\n\v\f\r";
    const size_t start = text.find_first_not_of(kWhite);
    if (start == std::string_view::npos) return {};
    text.remove_prefix(start);
    return first_of(text, text.find_first_of(kWhite));
}

int32_t decimal(const char* text) { return static_cast<int32_t>(strtoll(text, nullptr, 10)); }

uint64_t hexadecimal(const char* text) { return strtoull(text, nullptr, 16); }

bool LineReader::fill() {
    if (failed_) return false;
    const ssize_t n = read_some(fd_, buffer_, sizeof buffer_);
    failed_ = n < 0;
    start_ = 0;
    end_ = n > 0 ? static_cast<size_t>(n) : 0;
    return n > 0;
}

bool LineReader::next(char* line, size_t size) {
    size_t length = 0;
    bool ended = false;
    while (!ended && length + 1 < size && (start_ < end_ || fill())) {
        const char* from = buffer_ + start_;
        size_t count = std::min(end_ - start_, size - 1 - length);
        if (const void* newline = memchr(from, '\n', count)) {
            count = static_cast<size_t>(static_cast<const char*>(newline) - from) + 1;
            ended = true;
        }
        memcpy(line + length, from, count);
        length += count;
        start_ += count;
    }
    if (failed_) length = 0;
    line[length] = '\0';
    return length > 0;
}

}  // namespace marl
