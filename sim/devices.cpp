#include "devices.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "board.h"
#include "real.h"
#include "script.h"

namespace sim::devices {

constinit State state;

namespace {

using record::Line;

constexpr size_t kCmosSize = sizeof state.cmos;
constexpr unsigned kResetOutput = 35;
constexpr const char* kCmosFile = "/.cmos";

uint32_t get_u32(const void* from) {
    uint32_t value = 0;
    memcpy(&value, from, sizeof value);
    return value;
}

// --- /dev/misc/wdt

int64_t watchdog(int, uint32_t request, void* argument, Line& line) {
    constexpr uint32_t kFeed = 4, kSetPeriod = 5, kResume = 7;
    if (request == kSetPeriod) {
        const uint32_t millis = get_u32(argument);
        line.add(" %d", static_cast<int>(millis));
        state.watchdog_period = clock::Nanos{1'000'000} * static_cast<int32_t>(millis);
    } else if (request == kResume) {
        state.armed = state.watchdog_period > 0;
    } else if (request != kFeed) {
        return -ENOTTY;
    }
    state.fed = clock::now();
    script::reschedule();
    return 0;
}

// --- /dev/misc/rtc

int64_t rtc_control(int, uint32_t request, void* argument, Line& line) {
    constexpr uint32_t kReadTime = 0x80247009;
    if (request != kReadTime) return -ENOTTY;
    using namespace std::chrono;
    const sys_seconds time{seconds{rtc_now()}};
    const sys_days day = floor<days>(time);
    const year_month_day date{day};
    const hh_mm_ss clock_time{time - day};
    const int32_t record[9] = {static_cast<int32_t>(clock_time.seconds().count()),
                               static_cast<int32_t>(clock_time.minutes().count()),
                               static_cast<int32_t>(clock_time.hours().count()),
                               static_cast<int32_t>(static_cast<unsigned>(date.day())),
                               static_cast<int32_t>(static_cast<unsigned>(date.month())) - 1,
                               static_cast<int>(date.year()) - 1900,
                               static_cast<int32_t>(weekday{day}.c_encoding()),
                               static_cast<int32_t>((day - sys_days{date.year() / January / 1}).count()),
                               0};
    memcpy(argument, record, sizeof record);
    line.add(" -> %04d-%02d-%02d %02d:%02d:%02d", record[5] + 1900, record[4] + 1, record[3], record[2], record[1],
             record[0]);
    return 0;
}

int64_t cmos_read(void* data, size_t size) {
    auto* bytes = static_cast<uint8_t*>(data);
    const size_t offset = size > 0 ? bytes[0] : 0;
    for (size_t i = 0; i < size; ++i) bytes[i] = offset + i < kCmosSize ? state.cmos[offset + i] : 0;
    return static_cast<int64_t>(size);
}

int64_t cmos_write(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 1; i < size && bytes[0] + i - 1 < kCmosSize; ++i) state.cmos[bytes[0] + i - 1] = bytes[i];
    save_cmos();
    return static_cast<int64_t>(size);
}

// --- /dev/misc/gpio and the expander

int64_t gpio_read(void* data, size_t size) {
    if (size != 1) return -EINVAL;
    auto* byte = static_cast<uint8_t*>(data);
    *byte = state.levels[*byte];
    return 1;
}

int64_t gpio_write(const void* data, size_t size) {
    if (size != 2) return -EINVAL;
    const auto* bytes = static_cast<const uint8_t*>(data);
    const bool raised = state.outputs[bytes[0]] == 0 && bytes[1] != 0;
    state.outputs[bytes[0]] = bytes[1];
    if (bytes[0] == kResetOutput && raised) script::reset_board("reset gpio35", 0);
    return 2;
}

int64_t gpio_control(int, uint32_t request, void* argument, Line& line) {
    if (request != 1) return -ENOTTY;
    line.bytes(argument, 3);
    return 0;
}

int64_t expander_read(void* data, size_t size) {
    if (size != 1) return -EINVAL;
    memcpy(data, &state.expander, 1);
    return 1;
}

int64_t take_two(const void*, size_t size) { return size == 2 ? 2 : -EINVAL; }
int64_t take_all(const void*, size_t size) { return static_cast<int64_t>(size); }
int64_t no_data(void*, size_t) { return -EAGAIN; }
int64_t cannot_read(void*, size_t) { return -EINVAL; }
int64_t cannot_write(const void*, size_t) { return -EINVAL; }
int64_t no_control(int, uint32_t, void*, Line&) { return -ENOTTY; }

// --- /dev/misc/spi0, the co-processor link

int64_t answer(void* argument, uint32_t value, Line& line) {
    memcpy(argument, &value, sizeof value);
    line.add(" -> 0x%x", value);
    return 0;
}

int64_t link_control(int, uint32_t request, void* argument, Line& line) {
    switch (request) {
        case 0x4004730B:  // begin
        case 0x4004730C:  // end
            line.add(" %lu", static_cast<unsigned long>(reinterpret_cast<uintptr_t>(argument)));
            return 0;
        case 0x80047302: return answer(argument, state.link_status, line);
        case 0x40047305: return answer(argument, state.alive, line);
        case 0x4004730A: return answer(argument, state.query_2a, line);
        case 0x4004730D:
        case 0x40047309:
            memcpy(argument, state.version, sizeof state.version);
            line.add(" -> %.32s %.16s %.16s", state.version, state.version + 48, state.version + 32);
            return 0;
        case 0x40047307:  // boot wait
        case 0x40047306: line.add(" %u", get_u32(argument)); return 0;
        default: return -ENOTTY;
    }
}

// --- /dev/davinci_vpfe, /dev/mtd

int64_t capture_control(int, uint32_t request, void* argument, Line& line) {
    if (request == 0x80145603) {
        memset(argument, 0, 20);
        return answer(argument, state.stalled, line);
    }
    if (request != 0x80045609) return -ENOTTY;
    line.add(" %u", get_u32(argument));
    return 0;
}

int64_t flash_control(int descriptor, uint32_t request, void* argument, Line& line) {
    constexpr uint32_t kErase = 0x40084D02;
    if (request != kErase) return -ENOTTY;
    const uint32_t from = get_u32(argument);
    const uint32_t length = get_u32(static_cast<const char*>(argument) + 4);
    line.add(" %u %u", from, length);
    struct stat info {};
    if (fstat(descriptor, &info) != 0 || uint64_t{from} + length > static_cast<uint64_t>(info.st_size)) return -EINVAL;
    char erased[1024];
    memset(erased, 0xFF, sizeof erased);
    for (uint32_t done = 0; done < length;) {
        const size_t part = std::min<size_t>(sizeof erased, length - done);
        if (real.pwrite64(descriptor, erased, part, from + done) < 0) return -errno;
        done += static_cast<uint32_t>(part);
    }
    return 0;
}

constexpr Model kModels[] = {
    {"/dev/misc/wdt", true, nullptr, cannot_read, cannot_write, watchdog},
    {"/dev/misc/rtc", true, "at", cmos_read, cmos_write, rtc_control},
    {"/dev/misc/gpio", true, "line", gpio_read, gpio_write, gpio_control},
    {"/dev/misc/gio_expd_in", true, nullptr, expander_read, cannot_write, no_control},
    {"/dev/misc/gio_expander", true, nullptr, cannot_read, take_two, no_control},
    {"/dev/mcu", false, nullptr, no_data, take_all, no_control},
    {"/dev/misc/spi0", false, nullptr, cannot_read, cannot_write, link_control},
    {"/dev/davinci_vpfe", false, nullptr, cannot_read, cannot_write, capture_control},
    {"/dev/mtd/", false, nullptr, nullptr, nullptr, flash_control},
};

}  // namespace

const Model* find(const char* path) {
    for (const Model& model : kModels) {
        const size_t length = strlen(model.path);
        const bool below = model.path[length - 1] == '/' && strncmp(path, model.path, length) == 0;
        if (below || strcmp(path, model.path) == 0) return &model;
    }
    return nullptr;
}

void reset() {
    state = State{};
    memset(state.levels, 1, sizeof state.levels);
    memset(state.outputs, 1, sizeof state.outputs);
    for (const Model& model : kModels) {
        if (model.present) board::write_file(model.path, O_CREAT, "", 0);
    }
    char path[board::kPathSize];
    const int fd = board::place_inside(kCmosFile, path) ? real.open(path, O_RDONLY | O_CLOEXEC) : -1;
    if (fd < 0) return;
    if (real.read(fd, state.cmos, sizeof state.cmos) < 0) state.cmos[0] = 0;
    real.close(fd);
}

int64_t rtc_now() { return state.rtc + (state.rtc_stopped ? 0 : clock::now() / clock::kSecond); }

void save_cmos() { board::write_file(kCmosFile, O_CREAT, state.cmos, sizeof state.cmos); }

clock::Nanos watchdog_deadline() {
    const clock::Nanos fed = std::max(state.fed, state.fed_by_others);
    return !state.armed || fed == clock::kNever ? clock::kNever : fed + state.watchdog_period;
}

}  // namespace sim::devices
