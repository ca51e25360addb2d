// A line of a script or a command, taken apart where it lies: nothing is allocated.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "clock.h"

namespace sim {

class Words {
  public:
    explicit Words(char* line) : rest_(line) {}

    // The next word; "" at the end.
    const char* next() {
        const char* word = skip();
        rest_ += strcspn(rest_, " \t");
        if (*rest_ != '\0') *rest_++ = '\0';
        return word;
    }

    // All that is left.
    char* rest() {
        static char end[1];
        skip();
        return std::exchange(rest_, end);
    }

    bool more() { return *skip() != '\0'; }

    // Takes these words, if they come next. A text that ends in ':' may be the beginning of a word.
    bool is(const char* words) {
        const size_t length = strlen(words);
        if (strncmp(skip(), words, length) != 0) return false;
        if (words[length - 1] != ':' && strchr(" \t", rest_[length]) == nullptr) return false;
        rest_ += length;
        return true;
    }

    off_t size() { return static_cast<off_t>(number()); }
    uint32_t number(int base = 0) { return number(next(), base); }
    uint32_t number(const char* text, int base = 0) {
        char* end = nullptr;
        const unsigned long long value = strtoull(text, &end, base);
        check(text, end);
        return static_cast<uint32_t>(value);
    }

    clock::Nanos seconds() {
        const char* text = next();
        char* end = nullptr;
        const double value = strtod(text, &end);
        check(text, end);
        return value > 9e9 ? clock::kNever : static_cast<clock::Nanos>(value * 1e6 + 0.5) * 1000;
    }

    // False when something that had to be a number was none, or words are left.
    bool good() { return good_ && !more(); }

  private:
    char* skip() { return rest_ += strspn(rest_, " \t"); }
    void check(const char* text, const char* end) { good_ = good_ && end != text && *end == '\0'; }

    char* rest_;
    bool good_ = true;
};

}  // namespace sim
