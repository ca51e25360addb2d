#pragma once

#include <cstddef>
#include <span>

namespace marl {

// get_proc_field with a token buffer of the caller's size; either span may be empty. `raw` takes the rest of
// the line, cut to its size and not terminated.
int read_proc_field(const char* path, const char* key, std::span<char> token, std::span<char> raw);

}  // namespace marl
