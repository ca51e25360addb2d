// What the fuzz targets have in common. Each takes an input apart, gives it to the library as the stream that it
// stands for, and requires what must hold whatever the stream says.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "memory/memory.h"

inline void require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    if (holds) return;
    fprintf(stderr, "%s:%d does not hold\n", file, line);
    abort();
}

class Input {
  public:
    explicit Input(std::string_view bytes) : bytes_(bytes) {}

    bool any() const { return !bytes_.empty(); }
    uint8_t byte() { return any() ? static_cast<uint8_t>(take(1)[0]) : uint8_t{0}; }
    std::string line() { return take(std::min(bytes_.find('\n'), bytes_.size() - 1) + 1, '\n').c_str(); }
    std::string rest() { return take(bytes_.size()); }

  private:
    std::string take(size_t size, char end = '\0') {
        std::string taken(bytes_.substr(0, size));
        bytes_.remove_prefix(std::min(size, bytes_.size()));
        if (end != '\0' && taken.ends_with(end)) taken.pop_back();
        return taken;
    }

    std::string_view bytes_;
};

// A caller's buffer of that size, on the heap: the sanitizer sees the byte behind it.
using Buffer = std::vector<char>;

inline std::string text_in(const Buffer& buffer) {
    return {buffer.data(), strnlen(buffer.data(), buffer.size())};
}

template <size_t kSize>
bool ends(const char (&text)[kSize]) {
    return strnlen(text, kSize) < kSize;
}

using Target = void (*)(Input& input);
inline std::map<std::string, Target> g_targets;

inline void run_target(Target target, std::string_view bytes) {
    constexpr int kKept = 4;  // descriptors that the library keeps, at most: leaks soon add up to more
    memory::clear();
    Input input(bytes);
    target(input);
    require(memory::descriptors() <= kKept);
}

#define TARGET(name)                                                                   \
    static void fuzz_##name(Input& input);                                             \
    static const bool name##_is_listed = g_targets.emplace(#name, fuzz_##name).second; \
    static void fuzz_##name(Input& input)
