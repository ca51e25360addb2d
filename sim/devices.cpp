#include "devices.h"

#include <algorithm>
#include <chrono>

#include "board.h"
#include "real.h"
#include "script.h"

namespace sim::devices {

constinit State state;

namespace {

using record::Line;

constexpr unsigned kResetOutput = 35;
constexpr const char* kCmosFile = "/.cmos";  // as it outlasts the board's power
constexpr size_t kCmosSize = 256;

uint32_t get_u32(const void* from, size_t offset = 0) {
    uint32_t value = 0;
    memcpy(&value, static_cast<const char*>(from) + offset, sizeof value);
    return value;
}

// --- Reads and writes

int64_t refuse(uint8_t*, size_t) { return -EINVAL; }
int64_t take_two(uint8_t*, size_t size) { return size == 2 ? 2 : -EINVAL; }

// The first byte is the offset; what was never written is 0.
int64_t cmos_read(uint8_t* data, size_t size) {
    const size_t offset = size > 0 ? data[0] : 0;
    memset(data, 0, size);
    const int fd = board::open_file(kCmosFile, O_RDONLY);
    real.pread(fd, data, std::min(size, kCmosSize - offset), static_cast<off_t>(offset));
    real.close(fd);
    return static_cast<int64_t>(size);
}

int64_t cmos_write(uint8_t* data, size_t size) {
    const size_t offset = size > 0 ? data[0] : kCmosSize;
    const size_t most = std::min(size - 1, kCmosSize - offset);
    board::write_file(kCmosFile, 0, {reinterpret_cast<char*>(data) + 1, most}, static_cast<off_t>(offset));
    return static_cast<int64_t>(size);
}

int64_t gpio_read(uint8_t* data, size_t size) {
    if (size != 1) return -EINVAL;
    *data = state.levels[*data];
    return 1;
}

int64_t gpio_write(uint8_t* data, size_t size) {
    if (size != 2) return -EINVAL;
    const bool raised = state.outputs[data[0]] == 0 && data[1] != 0;
    state.outputs[data[0]] = data[1];
    if (data[0] == kResetOutput && raised) script::add_order(clock::now(), 0, "end 3 reset gpio35");
    return 2;
}

int64_t expander_read(uint8_t* data, size_t size) {
    if (size != 1) return -EINVAL;
    *data = static_cast<uint8_t>(state.expander);
    return 1;
}

uint32_t crc32(const uint8_t* data, size_t size) {
    uint32_t crc = ~0U;
    for (size_t bit = 0; bit < 8 * size; ++bit) {
        if (bit % 8 == 0) crc ^= data[bit / 8];
        crc = (crc >> 1) ^ (0xEDB88320U & (0U - (crc & 1U)));
    }
    return ~crc;
}

// A frame of a firmware upgrade, which the co-processor checks before it acknowledges it.
int64_t take_frame(uint8_t* data, size_t size) {
    constexpr size_t kHeader = 16;
    if (size < kHeader) return -EINVAL;
    const bool is_end = size == kHeader && get_u32(data, 12) == 0x1234;
    const bool is_whole = get_u32(data, 4) == size - kHeader && get_u32(data, 12) == 0;
    const bool is_right = is_whole && crc32(data + kHeader, size - kHeader) == get_u32(data, 8);
    state.link_ack = is_end ? 0x99BB : is_right ? 0x55AA : 0x7788;
    return static_cast<int64_t>(size);
}

constexpr Model kModels[] = {
    {"/dev/misc/wdt", false, nullptr, refuse, refuse},
    {"/dev/misc/rtc", true, "at", cmos_read, cmos_write},
    {"/dev/misc/gpio", false, "line", gpio_read, gpio_write},
    {"/dev/misc/gio_expd_in", false, nullptr, expander_read, refuse},
    {"/dev/misc/gio_expander", false, nullptr, refuse, take_two},
    {"/dev/mcu", false, nullptr, mcu::read, mcu::write},
    {"/dev/misc/spi0", false, nullptr, refuse, take_frame},
    {"/dev/davinci_vpfe", false, nullptr, refuse, refuse},
    {"/dev/", true, nullptr, nullptr, nullptr},
    {"socket", false, nullptr, nullptr, nullptr},
    {"", true, nullptr, nullptr, nullptr},  // ordinary files, and the end of the list
};

// Whether a path is the one of a row; one that ends in '/' stands for all below it.
bool is_meant(const char* row, const char* path) {
    const size_t length = strlen(row);
    return strncmp(path, row, length) == 0 && (path[length] == '\0' || row[length - 1] == '/');
}

// --- Requests

int64_t nothing(int, void*, Line&) { return 0; }

int64_t show_value(int, void* argument, Line& line) {
    line.add(" %lu", static_cast<unsigned long>(reinterpret_cast<uintptr_t>(argument)));
    return 0;
}

int64_t show_word(int, void* argument, Line& line) {
    line.add(" %d", static_cast<int32_t>(get_u32(argument)));
    return 0;
}

template <uint32_t State::*kWord>
int64_t take(int descriptor, void* argument, Line& line) {
    state.*kWord = get_u32(argument);
    return show_word(descriptor, argument, line);
}

int64_t show_three_bytes(int, void* argument, Line& line) {
    line.bytes(argument, 3);
    return 0;
}

int64_t give(void* argument, uint32_t word, Line& line) {
    memcpy(argument, &word, sizeof word);
    line.add(" -> 0x%x", word);
    return 0;
}

template <uint32_t State::*kWord>
int64_t answer(int, void* argument, Line& line) {
    return give(argument, state.*kWord, line);
}

// Other programs feed the watchdog too; without them the board resets a period after the last feed.
int64_t feed(int, void*, Line&) {
    const clock::Nanos last = std::max(clock::now(), state.fed_until);
    if (state.armed && last != clock::kNever)
        script::watchdog_at(last + state.period_ms * (clock::kSecond / 1000));
    return 0;
}

int64_t resume(int descriptor, void* argument, Line& line) {
    state.armed = true;
    return feed(descriptor, argument, line);
}

int64_t acknowledge(int, void* argument, Line& line) {
    uint32_t& taken = state.acks[0];
    const uint32_t usual = state.acknowledges ? state.link_ack : 0;
    return give(argument, taken < state.acks[1] ? state.acks[2 + taken++] : usual, line);
}

int64_t identify(int, void*, Line& line) {
    line.add(" -> %u", state.fpga_id);
    return state.fpga_id;
}

int64_t stall_record(int, void* argument, Line& line) {
    memset(argument, 0, 20);
    return give(argument, state.stalled, line);
}

int64_t version(int, void* argument, Line& line) {
    memcpy(argument, state.version, sizeof state.version);
    line.add(" -> %.32s %.16s %.16s", state.version, state.version + 48, state.version + 32);
    return 0;
}

// Not by gmtime(): that would set the time zone of a program which has not asked for it yet.
int64_t read_rtc(int, void* argument, Line& line) {
    using namespace std::chrono;
    const seconds time{state.rtc_start + (state.rtc_stopped ? 0 : clock::now() / clock::kSecond)};
    const sys_days day{floor<days>(time)};
    const year_month_day date{day};
    const auto gone = static_cast<int>((time - day.time_since_epoch()).count());
    const int year = int{date.year()};
    const int month = static_cast<int>(unsigned{date.month()});
    const int month_day = static_cast<int>(unsigned{date.day()});
    const int year_day = static_cast<int>((day - sys_days{date.year() / January / 1}).count());
    const int week_day = static_cast<int>(weekday{day}.c_encoding());
    const int record[9] = {gone % 60,   gone / 60 % 60, gone / 3600, month_day, month - 1,
                           year - 1900, week_day,       year_day,    0};
    memcpy(argument, record, sizeof record);
    line.add(" -> %04d-%02d-%02d %02d:%02d:%02d", year, month, month_day, record[2], record[1], record[0]);
    return 0;
}

int64_t erase_flash(int descriptor, void* argument, Line& line) {
    const uint32_t from = get_u32(argument), length = get_u32(argument, 4);
    line.add(" %u %u", from, length);
    struct stat info {};
    if (fstat(descriptor, &info) != 0 || int64_t{from} + length > info.st_size) return -EINVAL;
    script::count_change();
    return erase(descriptor, from, length);
}

// For tools of others, which ask the driver for it: NOR flash with sectors of 64 KiB.
int64_t geometry(int descriptor, void* argument, Line&) {
    struct stat info {};
    if (fstat(descriptor, &info) != 0) return -errno;
    const uint32_t record[8] = {3, 0xC00, static_cast<uint32_t>(info.st_size), 0x10000, 1};
    memcpy(argument, record, sizeof record);
    return 0;
}

struct Request {
    const char* path;
    uint32_t number;
    int64_t (*perform)(int descriptor, void* argument, Line& line);
};

constexpr Request kRequests[] = {
    {"/dev/misc/wdt", 4, feed},
    {"/dev/misc/wdt", 5, take<&State::period_ms>},
    {"/dev/misc/wdt", 7, resume},
    {"/dev/misc/rtc", 0x80247009, read_rtc},
    {"/dev/misc/gpio", 1, show_three_bytes},
    {"/dev/misc/ataen", 0x40044A01, show_word},  // switch the bus to the disk or away from it
    {"/dev/misc/spi0", 0x4004730B, show_value},  // begin
    {"/dev/misc/spi0", 0x4004730C, show_value},  // end
    {"/dev/misc/spi0", 0x40047306, show_word},
    {"/dev/misc/spi0", 0x40047307, show_word},  // boot wait
    {"/dev/misc/spi0", 0x80047302, answer<&State::link_status>},
    {"/dev/misc/spi0", 0x40047305, answer<&State::alive>},
    {"/dev/misc/spi0", 0x4004730A, answer<&State::query_2a>},
    {"/dev/misc/spi0", 0x40047309, version},
    {"/dev/misc/spi0", 0x4004730D, version},
    {"/dev/misc/spi0", 0x40047301, take<&State::link_status>},
    {"/dev/misc/spi0", 0x80047304, acknowledge},
    {"/dev/misc/spi1", 0xC004650C, identify},
    {"/dev/misc/spi1", 0xC0046501, nothing},  // start programming
    {"/dev/misc/spi1", 0xC004650B, nothing},  // open the protection
    {"/dev/misc/spi1", 0xC0046508, erase_flash},
    {"/dev/misc/spi1", 0xC0046502, nothing},  // end programming
    {"/dev/davinci_vpfe", 0x80145603, stall_record},
    {"/dev/davinci_vpfe", 0x80045609, show_word},
    {"/dev/mtd/", 0x40084D02, erase_flash},
    {"/dev/mtd/", 0x80204D01, geometry},
};

}  // namespace

const Model& find(const char* path) {
    const Model* model = kModels;
    while (*model->path != '\0' && !is_meant(model->path, path)) ++model;
    return *model;
}

int64_t erase(int descriptor, uint32_t from, uint32_t length) {
    char erased[1024];
    memset(erased, 0xFF, sizeof erased);
    for (uint32_t done = 0, part = 0; done < length; done += part) {
        part = std::min<uint32_t>(sizeof erased, length - done);
        if (real.pwrite(descriptor, erased, part, static_cast<off_t>(int64_t{from} + done)) < 0)
            return -errno;
    }
    return 0;
}

int64_t control(const char* path, int descriptor, uint32_t request, void* argument, Line& line) {
    for (const Request& each : kRequests) {
        if (each.number == request && is_meant(each.path, path))
            return each.perform(descriptor, argument, line);
    }
    return is_meant("/dev/", path) ? -ENOTTY : or_errno(real.ioctl(descriptor, request, argument));
}

void reset() {
    state = State{};
    mcu::reset();
    memset(state.levels, 1, sizeof state.levels);
    memset(state.outputs, 1, sizeof state.outputs);
}

}  // namespace sim::devices
