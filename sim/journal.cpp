#include "journal.h"

#include <algorithm>
#include <cstdarg>
#include <iterator>
#include <mutex>

#include "board.h"
#include "clock.h"
#include "real.h"

namespace sim::record {
namespace {

constexpr size_t kMemory = 4U << 20;

char memory[kMemory];
size_t used = 0;
int file = -1;
constinit clock::Lock lock;

char beginnings[128];  // how lines begin that are kept; none: all are

bool is_kept(const char* who) {
    size_t length = 0;
    for (const char* word = beginnings; *word != '\0'; word += length + strspn(word + length, " ")) {
        length = strcspn(word, " ");
        if (strncmp(who, word, length) == 0) return true;
    }
    return *beginnings == '\0';
}

// Only a test program asks for the text afterwards.
bool has_room(size_t size) { return !board::is_launched() && used + size <= kMemory; }

}  // namespace

void open(const char* target, const char* only) {
    if (only != nullptr) snprintf(beginnings, sizeof beginnings, "%s", only);
    if (target == nullptr) return;
    file = put_away(strcmp(target, "-") == 0
                        ? dup(STDOUT_FILENO)
                        : real.open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
}

bool is_open() { return file >= 0; }

void clear() {
    const std::lock_guard guard(lock);
    used = 0;
}

std::string text() {
    const std::lock_guard guard(lock);
    return {memory, used};
}

// A line that nothing would keep is not made: a run of many days does not pay for it.
Line::Line(const char* who) : dropped_((file < 0 && !has_room(kSize)) || !is_kept(who)) {
    const int64_t millis = clock::now() / 1'000'000;
    add("%lld.%03d %s", static_cast<long long>(millis / 1000), static_cast<int>(millis % 1000), who);
}

Line::~Line() {
    if (dropped_) return;
    text_[used_++] = '\n';
    const std::lock_guard guard(lock);
    if (has_room(used_)) {
        memcpy(memory + used, text_, used_);
        used += used_;
    }
    if (file >= 0 && real.write(file, text_, used_) < 0) file = -1;
}

Line& Line::add(const char* format, ...) {
    if (dropped_) return *this;
    va_list arguments;
    va_start(arguments, format);
    const size_t room = kSize - 1 - used_;
    const int wanted = vsnprintf(text_ + used_, room, format, arguments);
    va_end(arguments);
    used_ += std::min(static_cast<size_t>(std::max(wanted, 0)), room - 1);
    return *this;
}

Line& Line::bytes(const void* data, size_t size, size_t shown) {
    const auto* byte = static_cast<const unsigned char*>(data);
    if (size > 0) add(":");
    const size_t most = dropped_ ? 0 : std::min(size, shown);
    for (size_t i = 0; i < most; ++i) add(" %02x", byte[i]);
    return size > shown ? add(" ...") : *this;
}

Line& Line::quoted(const char* text, size_t size) {
    static constexpr char kEscaped[] = "\n\t\033\"\\";
    static constexpr char kLetters[] = "nte\"\\";
    add(" \"");
    for (size_t i = 0; i < size && used_ + 16 < kSize; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const char* known = byte == 0 ? nullptr : strchr(kEscaped, byte);
        if (known != nullptr) {
            add("\\%c", kLetters[known - kEscaped]);
        } else {
            add(byte < ' ' || byte == 0x7F ? "\\x%02x" : "%c", byte);
        }
    }
    return add("\"");
}

Line& Line::failure(int64_t result) {
    const char* name = result < 0 ? strerrorname_np(static_cast<int>(-result)) : nullptr;
    return name != nullptr ? add(" -> %s", name) : *this;
}

}  // namespace sim::record
