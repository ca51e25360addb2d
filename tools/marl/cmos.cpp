// The CMOS bytes.
#include <libmarl.h>

#include <cstring>

#include "handlers.h"
#include "messages.h"
#include "results.h"

namespace tool {
namespace {

constexpr uint32_t kSize = 256;

Exit unreachable(int result, const char* what) {
    if (result == 0) return failed("this model has no CMOS bytes");
    if (result > 0) return failed("not all of the CMOS bytes were %s", what);
    return failed_system("the CMOS bytes cannot be %s", what);
}

bool is_whole(int result, uint32_t count) { return result == static_cast<int>(count); }

void show(uint32_t offset, const uint8_t* bytes, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) results::print("%02x%c", bytes[i], i + 1 < count ? ' ' : '\n');
    const results::JsonOnly rest;
    results::field("offset", offset);
    results::begin_list("bytes");
    for (uint32_t i = 0; i < count; ++i) results::field(nullptr, bytes[i]);
    results::end_list();
}

}  // namespace

Exit cmos_read(const Request& request) {
    const uint32_t offset = request.number(0);
    const uint32_t count = request.word(1) != nullptr ? request.number(1) : 1;
    if (offset + count > kSize)
        return refused("there are 256 CMOS bytes: %u from %u on are too many", count, offset);
    uint8_t bytes[MARL_CMOS_READ_MAX];
    const int result = readCMOS(static_cast<uint8_t>(offset), bytes, count);
    if (!is_whole(result, count)) return unreachable(result, "read");
    show(offset, bytes, count);
    return kDone;
}

Exit cmos_write(const Request& request) {
    const uint32_t offset = request.number(0);
    const auto count = static_cast<uint32_t>(request.word_count - 1);
    if (count > MARL_CMOS_READ_MAX || offset + count > kSize) {
        return refused("%u bytes from %u on are too many: up to 64, to byte 255", count, offset);
    }
    uint8_t bytes[MARL_CMOS_READ_MAX], stored[MARL_CMOS_READ_MAX];
    for (uint32_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(request.number(static_cast<int>(i) + 1));
    const int written = writeCMOS(static_cast<uint8_t>(offset), bytes, count);
    if (written <= 0) return unreachable(written, "written");
    const int read = readCMOS(static_cast<uint8_t>(offset), stored, count);
    if (!is_whole(read, count)) return unreachable(read, "read back");
    if (memcmp(bytes, stored, count) != 0) return failed("the CMOS bytes are not as they were written");
    if (results::is_json()) show(offset, bytes, count);
    return kDone;
}

}  // namespace tool
