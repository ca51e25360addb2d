// Lists of words for tables of constants, without a pointer a word: the loader would write each of those at the
// start of every program of the device, into pages that the program then has for itself.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace marl {

// The words of a literal, with a NUL between them: "one\0two" has two.
class Words {
  public:
    class Iterator {
      public:
        explicit constexpr Iterator(const char* word) : word_(word) {}
        const char* operator*() const { return word_; }
        Iterator& operator++() {
            word_ += strlen(word_) + 1;
            return *this;
        }
        bool operator==(const Iterator&) const = default;

      private:
        const char* word_;
    };

    constexpr Words() = default;
    template <size_t Size>
    constexpr Words(const char (&literal)[Size]) : text_(literal, Size) {}

    Iterator begin() const { return Iterator(text_.data()); }
    Iterator end() const { return Iterator(text_.data() + text_.size()); }

    // The word at a position from 0, or null behind the last.
    const char* at(size_t position) const {
        for (const char* word : *this) {
            if (position-- == 0) return word;
        }
        return nullptr;
    }

  private:
    std::string_view text_;
};

}  // namespace marl
