// Mappings.
#include "interpose.h"

using namespace sim;

// Also called by sanitizers before anything else is there.
EXPORT void* mmap64(void* at, size_t size, int protection, int flags, int fd, off64_t offset) noexcept {
    find_real_functions();
    const auto map = [&] { return real.mmap64(at, size, protection, flags, fd, offset); };
    if ((flags & MAP_ANONYMOUS) != 0 || board::tracked(fd) == nullptr) return map();
    void* mapped = MAP_FAILED;
    on_file("mmap", fd, static_cast<int64_t>(size), [&] {
        mapped = map();
        return mapped == MAP_FAILED ? -1 : 0;
    });
    return mapped;
}

EXPORT void* mmap(void* at, size_t size, int protection, int flags, int fd, off_t offset) noexcept {
    return mmap64(at, size, protection, flags, fd, offset);
}
