// GPIO lines and the expander.
#include <libmarl.h>

#include <algorithm>
#include <cstring>

#include "handlers.h"
#include "messages.h"
#include "progress.h"
#include "results.h"

namespace tool {
namespace {

constexpr uint32_t kResetLine = 35;
constexpr uint32_t kInputs = 8;

Exit unreadable(uint32_t line) { return failed_system("line %u cannot be read", line); }

bool set_line(uint32_t line, uint32_t level) { return gpio_set_bit(line, level) >= 0; }

void show_level(uint32_t line, int level) {
    results::print("%d\n", level);
    const results::JsonOnly rest;
    results::field("line", line);
    results::field("level", level);
}

}  // namespace

bool is_reset_line(const Request& request) { return request.number(0) == kResetLine; }

Exit gpio_get(const Request& request) {
    const uint32_t line = request.number(0);
    const int level = gpio_get_bit(line);
    if (level < 0) return unreadable(line);
    show_level(line, level);
    return kDone;
}

Exit gpio_set(const Request& request) {
    const uint32_t line = request.number(0);
    if (!set_line(line, request.number(1))) return failed_system("line %u cannot be set", line);
    const results::JsonOnly rest;
    results::field("line", line);
    results::field("level", request.number(1));
    return kDone;
}

Exit gpio_pulse(const Request& request) {
    const uint32_t line = request.number(0);
    const uint32_t level = request.number("--level", 1);
    const uint32_t time_ms = request.number("--for", 100);
    // Halfway is no place to stop.
    watch_for_interrupts();
    if (!set_line(line, level)) return failed_system("line %u cannot be set", line);
    const bool is_whole = sleep_us(time_ms * 1000) == 0;
    if (!set_line(line, 1 - level)) return failed_system("line %u cannot be set back", line);
    if (!is_whole) return failed("interrupted: line %u was set back before %u ms were over", line, time_ms);
    const results::JsonOnly rest;
    results::field("line", line);
    results::field("level", level);
    results::field("ms", time_ms);
    return kDone;
}

// The first level and every change, with the time since the start.
Exit gpio_watch(const Request& request) {
    const uint32_t line = request.number(0);
    const int64_t pause_ms = request.number("--every", 100);
    const int64_t limit_ms = request.has("--for") ? request.number("--for", 0) * int64_t{1000} : INT64_MAX;
    const int64_t start_ms = now_in_ms();
    int before = -1;
    watch_for_interrupts();
    for (int64_t time_ms = 0; !is_interrupted() && time_ms < limit_ms;) {
        const int level = gpio_get_bit(line);
        if (level < 0) return unreadable(line);
        if (level != before) {
            results::print("%7u.%03u %d\n", static_cast<unsigned>(time_ms / 1000),
                           static_cast<unsigned>(time_ms % 1000), level);
            const results::JsonOnly rest;
            results::field("ms", time_ms);
            results::field("line", line);
            results::field("level", level);
            if (!results::end_object()) return failed_system("standard output");
        }
        before = level;
        const int64_t sleep_ms = std::min(pause_ms, limit_ms - time_ms);
        sleep_us(static_cast<uint32_t>(sleep_ms * 1000));
        // A simulated board's time stands still for the clock, but its sleeps count.
        time_ms = std::max(time_ms + sleep_ms, now_in_ms() - start_ms);
    }
    return kDone;
}

Exit expander_get(const Request& request) {
    const uint32_t first = request.number(0);
    const uint32_t last = request.word(0) != nullptr ? first : kInputs - 1;
    uint8_t levels[kInputs] = {};
    for (uint32_t input = first; input <= last; ++input) {
        if (gio_expander_read(input, &levels[input]) < 0)
            return failed_system("input %u cannot be read", input);
    }
    const results::JsonOnly structure;
    results::begin_list("inputs");
    for (uint32_t input = first; input <= last; ++input) {
        const int level = levels[input];
        request.word(0) != nullptr ? results::print("%d\n", level) : results::print("%u %d\n", input, level);
        results::begin();
        results::field("input", input);
        results::field("level", level);
        results::end();
    }
    results::end_list();
    return kDone;
}

Exit expander_set(const Request& request) {
    const uint32_t output = request.number(0);
    if (gio_expander_write(output, request.number(1)) < 0)
        return failed_system("output %u cannot be set", output);
    const results::JsonOnly rest;
    results::field("output", output);
    results::field("level", request.number(1));
    return kDone;
}

}  // namespace tool
