#include "identity/env_image.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

namespace marl {
namespace {

constexpr size_t kPage = 0x1000;
constexpr size_t kPages = EnvImage::kSize / kPage;
constexpr uint8_t kErased = 0xFF;
static_assert(kPages == 32, "a bit for each page");

// What a page holds from its first byte to its last.
enum class Content { Zeros, Erased, Other };

Content content_of(const uint8_t* page) {
    if ((*page != 0 && *page != kErased) || memcmp(page, page + 1, kPage - 1) != 0) return Content::Other;
    return *page == 0 ? Content::Zeros : Content::Erased;
}

}  // namespace

bool EnvImage::allocate() {
    void* memory = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) return false;
    bytes_ = static_cast<uint8_t*>(memory);
    return true;
}

void EnvImage::release() {
    munmap(bytes_, kSize);
    bytes_ = nullptr;
}

// Pages that hold the same go in one call. Where the kernel keeps them, or has larger ones, nothing is lost but the
// memory.
void EnvImage::give_back_behind(size_t used) {
    if (sysconf(_SC_PAGESIZE) != kPage) return;
    for (size_t page = (used + kPage - 1) / kPage; page < kPages;) {
        uint8_t* start = bytes_ + page * kPage;
        const Content content = content_of(start);
        uint32_t bits = 0;
        size_t size = 0;
        do {
            bits |= 1U << page++;
            size += kPage;
        } while (page < kPages && content_of(start + size) == content);
        if (content == Content::Other || madvise(start, size, MADV_DONTNEED) != 0) continue;
        if (content == Content::Erased) erased_ |= bits;
    }
}

void EnvImage::fetch_back() {
    for (size_t page = 0; page < kPages; ++page) {
        if ((erased_ >> page & 1U) != 0) memset(bytes_ + page * kPage, kErased, kPage);
    }
    erased_ = 0;
}

}  // namespace marl
