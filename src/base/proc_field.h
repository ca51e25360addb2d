#pragma once

#include <cstddef>
#include <span>

namespace marl {

inline constexpr int kFieldNotFound = -1;
inline constexpr int kFieldCannotOpen = -2;  // errno says why
inline constexpr int kFieldUnreadable = -3;  // the file broke off
inline constexpr int kFieldOfNothing = -4;   // the file gave nothing at all
inline constexpr int kFieldKeyTooLong = -22;

// get_proc_field with a token buffer of the caller's size; either span may be empty. `raw` takes the rest of
// the line, cut to its size and not terminated. 0, or one of the above; the buffers are left alone then.
int read_proc_field(const char* path, const char* key, std::span<char> token, std::span<char> raw);

}  // namespace marl
