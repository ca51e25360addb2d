// One line of a script while it is looked at, and the orders that come of it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "compiler.h"

namespace sim::script {

using Nanos = int64_t;
constexpr Nanos kSecond = 1'000'000'000;
constexpr Nanos kNever = INT64_MAX;
constexpr Nanos kAtOnce = -1;

class Source {
  public:
    Source(std::string_view text, unsigned line, Known& what_is_known)
        : known(what_is_known), rest_(text), line_(line) {}

    bool more() { return !skip().empty(); }
    std::string next();  // the next word; "" at the end
    std::string rest();  // all that is left
    // Takes these words, if they come next. A text that ends in ':' may be the beginning of a word.
    bool is(std::string_view words);

    // The same, which must be there.
    std::string word();
    std::string text();
    uint64_t number(int base = 0, uint64_t most = UINT32_MAX, const char* wanted = "a number");
    Nanos seconds();
    std::string path();    // of a file of the board
    std::string device();  // one that there is a model of

    // Notes what would be right, unless something was wrong before.
    bool wants(bool is_right, std::string_view wanted, std::string_view found);
    bool ends() { return wants(!more(), "the line's end", rest_) && problem_.empty(); }
    const std::string& problem() const { return problem_; }
    void take_problem(const Source& other) {
        if (problem_.empty()) problem_ = other.problem_;
    }

    // Whether a file is still as it was saved before the board was switched on again: it is not made a second time.
    bool is_saved(std::string_view path) const;
    void at(Nanos time) { time_ = time; }  // the orders from here on are for then
    Nanos time() const { return time_; }
    __attribute__((format(printf, 2, 3))) void order(const char* format, ...);
    const std::string& orders() const { return orders_; }

    Known& known;

  private:
    std::string_view skip();

    std::string_view rest_;
    unsigned line_;
    Nanos time_ = kAtOnce;
    std::string problem_, orders_;
};

}  // namespace sim::script
