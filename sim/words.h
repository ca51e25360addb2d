// A line taken apart where it lies: nothing is allocated.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

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

    // The same, with \n and \xHH made what they stand for.
    std::string_view bytes() {
        char* const text = rest();
        char* end = text;
        for (const char* from = text; *from != '\0'; ++end) {
            unsigned byte = static_cast<unsigned char>(*from);
            int length = 1;
            if (sscanf(from, "\\x%2x%n", &byte, &length) != 1 && strncmp(from, "\\n", 2) == 0) {
                byte = '\n';
                length = 2;
            }
            *end = static_cast<char>(byte);
            from += length;
        }
        return {text, end};
    }

    bool more() { return *skip() != '\0'; }
    int64_t number() { return strtoll(next(), nullptr, 0); }

  protected:
    char* skip() { return rest_ += strspn(rest_, " \t"); }

    char* rest_;
};

// The row of a table that bears a name, or null.
template <class Row, size_t kRows>
const Row* find_row(const Row (&rows)[kRows], const char* name) {
    for (const Row& each : rows) {
        if (strcmp(each.name, name) == 0) return &each;
    }
    return nullptr;
}

}  // namespace sim
