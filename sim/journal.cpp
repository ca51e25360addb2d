#include "journal.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "clock.h"
#include "real.h"

namespace sim::record {
namespace {

constexpr size_t kMemory = 4U << 20;
constexpr size_t kBytesShown = 16;
// Out of the way of the program's descriptors: some of its tests count them.
constexpr int kFirstDescriptor = 900;

char* memory = nullptr;
size_t used = 0;
int file = -1;
constinit clock::Lock lock;

// Nothing would keep the line: a run of many days does not pay for it.
bool deaf() { return file < 0 && (memory == nullptr || used + 4096 > kMemory); }

}  // namespace

void open(const char* target) {
    if (memory == nullptr) {
        void* at = real.mmap64(nullptr, kMemory, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        memory = at == MAP_FAILED ? nullptr : static_cast<char*>(at);
    }
    if (target == nullptr) return;
    const bool to_stdout = strcmp(target, "-") == 0;
    const int opened = to_stdout ? 1 : real.open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (opened < 0) return;
    file = fcntl(opened, F_DUPFD_CLOEXEC, kFirstDescriptor);
    if (file < 0) file = fcntl(opened, F_DUPFD_CLOEXEC, 3);
    if (!to_stdout) real.close(opened);
}

void clear() {
    const clock::Guard guard(lock);
    used = 0;
}

std::string text() {
    const clock::Guard guard(lock);
    return {memory, used};
}

Line::Line(const char* who) : dropped_(deaf()) {
    const int64_t millis = clock::now() / 1'000'000;
    add("%lld.%03d %s", static_cast<long long>(millis / 1000), static_cast<int>(millis % 1000), who);
}

Line::~Line() {
    if (dropped_) return;
    text_[used_++] = '\n';
    const clock::Guard guard(lock);
    if (memory != nullptr && used + used_ <= kMemory) {
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
    if (wanted > 0) used_ += static_cast<size_t>(wanted) < room ? static_cast<size_t>(wanted) : room - 1;
    return *this;
}

Line& Line::bytes(const void* data, size_t size) {
    const auto* byte = static_cast<const unsigned char*>(data);
    if (size > 0) add(":");
    for (size_t i = 0; i < size && i < kBytesShown; ++i) add(" %02x", byte[i]);
    return size > kBytesShown ? add(" ...") : *this;
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
        } else if (byte < ' ' || byte == 0x7F) {
            add("\\x%02x", byte);
        } else {
            add("%c", byte);
        }
    }
    return add("\"");
}

Line& Line::failure(int64_t result) {
    if (result >= 0) return *this;
    const char* name = strerrorname_np(static_cast<int>(-result));
    return name != nullptr ? add(" -> %s", name) : add(" -> error %d", static_cast<int>(-result));
}

}  // namespace sim::record
