// A script line, a word at a time. Works on the line itself and allocates nothing.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "clock.h"

namespace sim {

// A terminated copy of a short text, for calls that want one.
class Text {
public:
    explicit Text(std::string_view text) {
        const size_t size = text.size() < sizeof text_ ? text.size() : sizeof text_ - 1;
        memcpy(text_, text.data(), size);
        text_[size] = '\0';
    }
    operator const char*() const { return text_; }

private:
    char text_[256];
};

class Words {
public:
    explicit Words(const char* line) : rest_(line) { skip(" \t\r"); }

    // The next word; empty at the end.
    std::string_view next() {
        const std::string_view word(rest_, strcspn(rest_, " \t\r"));
        rest_ += word.size();
        skip(" \t");
        return word;
    }

    // All that is left; the text is terminated.
    std::string_view rest() const { return rest_; }

    size_t number() { return number(next()); }
    static size_t number(std::string_view word, int base = 0) { return static_cast<size_t>(strtoull(Text(word), nullptr, base)); }

    clock::Nanos seconds() {
        const double value = strtod(Text(next()), nullptr);
        return value > 9e9 ? clock::kNever : static_cast<clock::Nanos>(value * 1e6 + 0.5) * 1000;
    }

    // All that is left with \n, \t, \\ and \xHH made into what they stand for. out has room for any line.
    size_t unescaped_rest(char* out) const {
        char* at = out;
        for (const char* from = rest_; *from != '\0'; ++from) {
            if (from[0] != '\\' || from[1] == '\0') {
                *at++ = *from;
                continue;
            }
            switch (*++from) {
                case 'n': *at++ = '\n'; break;
                case 't': *at++ = '\t'; break;
                case 'x':
                    *at++ = static_cast<char>(number({from + 1, strnlen(from + 1, 2)}, 16));
                    from += strnlen(from + 1, 2);
                    break;
                default: *at++ = *from;
            }
        }
        return static_cast<size_t>(at - out);
    }

private:
    void skip(const char* characters) { rest_ += strspn(rest_, characters); }

    const char* rest_;
};

}  // namespace sim
