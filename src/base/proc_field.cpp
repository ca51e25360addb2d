#include "base/proc_field.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>

#include "base/diag.h"
#include "base/fd.h"
#include "base/text.h"
#include "libmarl/proc.h"

namespace marl {
namespace {

constexpr size_t kLineSize = 128;

}  // namespace

int read_proc_field(const char* path, const char* key, std::span<char> token, std::span<char> raw) {
    const size_t key_length = strlen(key);
    if (key_length >= kLineSize) {
        diag::err("strlen=%d\n", static_cast<int>(key_length));
        return kFieldKeyTooLong;
    }
    const Fd file(open_file(path, O_RDONLY));
    if (!file.is_open()) {
        diag::err("open %s failed\n", path);
        return kFieldCannotOpen;
    }
    LineReader reader(file.get());
    char line[kLineSize];
    bool is_empty = true;
    for (; reader.next(line, sizeof line) && !reader.failed(); is_empty = false) {
        const char* found = strstr(line, key);
        if (found == nullptr) continue;
        const std::string_view value = rest_of(found, key_length + 1);
        std::copy_n(value.data(), std::min(value.size(), raw.size()), raw.data());
        copy_text(token.data(), token.size(), first_word(value));
        return 0;
    }
    if (reader.failed()) return kFieldUnreadable;
    return is_empty ? kFieldOfNothing : kFieldNotFound;
}

}  // namespace marl

// The separator's place is known from the key; which character stands there does not matter.
int get_proc_field(const char* path, const char* key, char /*sep*/, char* token_out, char* raw_out) {
    if (path == nullptr || key == nullptr) return -1;
    const std::span<char> token(token_out, token_out != nullptr ? MARL_PROC_TOKEN_SIZE : 0);
    const std::span<char> raw(raw_out, raw_out != nullptr ? MARL_PROC_RAW_SIZE : 0);
    const int result = marl::read_proc_field(path, key, token, raw);
    const bool is_inner = result == marl::kFieldUnreadable || result == marl::kFieldOfNothing;
    return is_inner ? marl::kFieldNotFound : result;
}
