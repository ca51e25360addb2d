// A line of a script or a command, taken apart where it lies: nothing is allocated.
#pragma once

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "clock.h"

namespace sim {

class Words {
  public:
    explicit Words(char* line) : rest_(line) {}

    // The next word; "" at the end.
    char* next() {
        char* word = skip();
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

    // Notes what would be right, unless something was wrong before.
    static bool wants(bool is_right, const char* wanted, const char* found) {
        if (!is_right && problem[0] == '\0')
            snprintf(problem, sizeof problem, "\"%.200s\" should be %.3800s", found, wanted);
        return is_right;
    }
    bool ends() { return wants(!more(), "the line's end", skip()) && problem[0] == '\0'; }

    char* word() {
        char* word = next();
        wants(*word != '\0', "a word", word);
        return word;
    }

    uint32_t number(int base = 0, uint32_t most = UINT32_MAX, const char* wanted = "a number") {
        char* word = next();
        char* end = nullptr;
        const unsigned long long value = strtoull(word, &end, base);
        wants(isalnum(*word) && *end == '\0' && value <= most, wanted, word);
        return static_cast<uint32_t>(value);
    }

    clock::Nanos seconds() {
        char* word = next();
        char* end = nullptr;
        const double value = strtod(word, &end);
        wants(isdigit(*word) && *end == '\0', "seconds", word);
        return value > 9e9 ? clock::kNever : static_cast<clock::Nanos>(value * 1e6 + 0.5) * 1000;
    }

    static inline char problem[4096];  // the first of the line that is looked at

  private:
    char* skip() { return rest_ += strspn(rest_, " \t"); }

    char* rest_;
};

}  // namespace sim
