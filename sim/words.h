// A line taken apart where it lies: nothing is allocated.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
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

    bool more() { return *skip() != '\0'; }
    int64_t number() { return strtoll(next(), nullptr, 0); }

  protected:
    char* skip() { return rest_ += strspn(rest_, " \t"); }

    char* rest_;
};

}  // namespace sim
