#include "verbs.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>

namespace sim::script {
namespace {

constexpr const char* kEnvironment = "/dev/mtd/1";
constexpr unsigned kChecksum = 4;  // bytes that it begins with, and that readers do not look at

std::string byte_of(uint64_t number) {
    char text[8];
    snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(number & UINT8_MAX));
    return text;
}

void make_env(Source& source) {
    const std::string text = source.rest();
    source.wants(text.find('=') != std::string::npos, "NAME=VALUE", text);
    unsigned& end = source.known.environment;
    end = std::max(end, kChecksum) + static_cast<unsigned>(text.size() + 1);
    if (source.is_saved(kEnvironment)) {
        source.order("set environment 0 %u", end);
    } else {
        source.order("env %s", text.c_str());
    }
}

void make_short_env(Source& source) {
    source.order("put %s 0", kEnvironment);
    source.order("size %s %u", kEnvironment, static_cast<unsigned>(source.number()));
}

void make_file(Source& source) {
    const std::string path = source.path(), text = source.rest();
    source.order("put %s end %s%s", path.c_str(), text.c_str(), text.empty() ? "" : "\\n");
}

void make_whole_file(Source& source) {
    const std::string path = source.path();
    source.order("put %s all %s", path.c_str(), source.rest().c_str());
}

void make_word(Source& source) {
    const std::string path = source.path();
    source.order("put %s 0 %s", path.c_str(), bytes_of(static_cast<uint32_t>(source.number())).c_str());
}

void make_truncate(Source& source) {
    const std::string path = source.path();
    source.order("size %s %u", path.c_str(), static_cast<unsigned>(source.number()));
}

void make_uevent(Source& source) { source.order("uevent 0 %s", source.rest().c_str()); }
void make_padded_uevent(Source& source) {
    const auto size = static_cast<unsigned>(source.number(0, 8192, "a size up to 8192"));
    source.order("uevent %u %s", size, source.rest().c_str());
}

// BYTE..., as the board takes them.
std::string hex_bytes(Source& source) {
    std::string list;
    do {
        list += byte_of(source.number(16, UINT8_MAX, "a byte in hexadecimal"));
    } while (source.more());
    return list;
}

void make_level(Source& source) {
    const auto line = static_cast<unsigned>(source.number(0, 71, "a GPIO line, 0 to 71"));
    std::string levels;
    do {
        levels += source.number(10, 1, "0 or 1") == 0 ? " 0" : " 1";
    } while (source.more());
    source.order("set level %u%s", line, levels.c_str());
}

void make_rtc(Source& source) {
    using namespace std::chrono;
    const std::string text = source.rest() + " 00:00:00";
    int year = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0;
    const int found = sscanf(text.c_str(), "%d-%u-%u %u:%u:%u", &year, &month, &day, &hour, &minute, &second);
    const year_month_day date{std::chrono::year{year}, std::chrono::month{month}, std::chrono::day{day}};
    const bool is_right = found == 6 && date.ok() && hour < 24 && minute < 60 && second < 60;
    source.wants(is_right, "a date as 2038-01-19, and a time as 03:14:07", text);
    const sys_seconds time = sys_days{date} + hours{hour} + minutes{minute} + seconds{second};
    source.order("set rtc 0 %lld", static_cast<long long>(time.time_since_epoch().count()));
}

void make_storm(Source& source) {
    const auto seed = static_cast<unsigned>(source.number());
    const Nanos every = source.seconds();
    source.wants(every > 0, "more than 0 seconds", "SECONDS");
    source.order("storm %u %lld", seed, static_cast<long long>(every));
}

void make_cmos(Source& source) {
    const auto offset = static_cast<unsigned>(source.number(0, UINT8_MAX, "an offset, 0 to 255"));
    source.order("put /.cmos %u %s", offset, hex_bytes(source).c_str());
}

// A text of so many bytes at most, the last of which is NUL.
std::string padded(const std::string& text, size_t size) {
    std::string bytes;
    for (size_t i = 0; i < size; ++i)
        bytes += " " + std::to_string(i + 1 < size && i < text.size() ? static_cast<uint8_t>(text[i]) : 0);
    return bytes;
}

// The record has the second version before the first.
void make_version(Source& source) {
    const std::string name = source.word(), first = source.word(), second = source.word();
    source.order("set version 0%s%s%s", padded(name, 32).c_str(), padded(second, 16).c_str(),
                 padded(first, 16).c_str());
}

void make_acks(Source& source) {
    constexpr size_t kMost = 16;
    size_t count = 0;
    std::string list;
    for (; source.more(); ++count) list += " " + std::to_string(source.number(16));
    source.wants(count <= kMost, "16 at most", std::to_string(count));
    source.order("set acks 0 0 %zu%s", count, list.c_str());
}

void make_mcu_say(Source& source) { source.order("say %s", hex_bytes(source).c_str()); }

void make_mcu_answer(Source& source) {
    const auto command = static_cast<unsigned>(source.number(0, 31, "a command, 0 to 31"));
    const auto operation = static_cast<unsigned>(source.number(0, 1, "0 or 1"));
    const std::string bytes = source.more() ? hex_bytes(source) : "";
    source.order("answer %u %u %s", command, operation, bytes.c_str());
}

void make_command(Source& source) {
    const std::string name = source.word();
    const auto status = static_cast<unsigned>(source.number(0, UINT8_MAX, "a status, 0 to 255"));
    source.order("command %s %u %lld", name.c_str(), status,
                 static_cast<long long>(source.more() ? source.seconds() : 0));
}

void make_beat(Source& source) {
    const std::string path = source.path();
    const Nanos every = source.is("every") ? source.seconds() : kSecond;
    const Nanos until = source.is("until") ? source.seconds() : kNever;
    source.wants(every > 0, "more than 0 seconds", "every");
    source.order("beat %s %lld %lld", path.c_str(), static_cast<long long>(every),
                 static_cast<long long>(until));
}

void make_network(Source& source) {
    source.known.network = true;
    source.order("network");
}

// TIME TEXT, or TEXT within A..B
void check_expect(Source& source) {
    std::string text = source.rest();
    const size_t within = text.rfind(" within ");
    const size_t upper = within == std::string::npos ? within : text.find("..", within);
    if (upper != std::string::npos) {
        text = text.replace(upper, 2, "  ").substr(within + std::string(" within ").size());
    }
    Source times(text, 0, source.known);
    times.seconds();
    if (upper == std::string::npos) {
        times.wants(times.more(), "TEXT", "");
    } else {
        times.seconds();
        times.ends();
    }
    source.wants(times.problem().empty(), "TIME TEXT or TEXT within A..B, in seconds", text);
}

void check_expect_end(Source& source) {
    if (source.is("exit")) {
        source.number(0, UINT8_MAX, "a status, 0 to 255");
    } else if (!source.is("reset") && !source.is("running")) {
        source.wants(false, "reset, running or exit N", source.rest());
    }
}

// How a line begins and goes on, and what makes orders of it or, where that is all, the one order that it is.
struct Verb {
    const char* name;
    const char* more;
    void (*make)(Source& source);
    const char* order = nullptr;
};

constexpr Verb kVerbs[] = {
    {"describe", "TEXT", [](Source& source) { source.text(); }},
    {"expect end", "reset|running|exit N", check_expect_end},
    {"expect", "TIME TEXT|TEXT within A..B", check_expect},
    {"never", "TEXT", [](Source& source) { source.text(); }},
    {"env", "NAME=VALUE", make_env},
    {"envimage missing", "", nullptr, "remove /dev/mtd/1"},
    {"envimage short:", "BYTES", make_short_env},
    {"mtd", "N NAME SIZE [erase SIZE] [FILE]", make_mtd},
    {"file", "PATH [TEXT]", make_file},
    {"file!", "PATH [TEXT]", make_whole_file},
    {"uevent padded:", "SIZE [TEXT]", make_padded_uevent},
    {"uevent", "[TEXT]", make_uevent},
    {"usb none", "", make_no_usb},
    {"usb", "VENDOR PRODUCT PLACE [driver NAME] [tty N] MAKER/NAME", make_usb},
    {"word", "PATH N", make_word},
    {"truncate", "PATH SIZE", make_truncate},
    {"delete", "PATH", [](Source& source) { source.order("remove %s", source.path().c_str()); }},
    {"missing", "DEVICE", [](Source& source) { source.order("remove %s", source.device().c_str()); }},
    {"present", "DEVICE", [](Source& source) { source.order("put %s 0", source.device().c_str()); }},
    {"level", "LINE 0|1...", make_level},
    {"cmos", "OFFSET BYTE...", make_cmos},
    {"spi0 version", "NAME V1 V2", make_version},
    {"spi0 acks", "[HEX...]", make_acks},
    {"spi0 mute", "", nullptr, "set acknowledges 0 0"},
    {"mcu say", "BYTE...", make_mcu_say},
    {"mcu answer", "COMMAND OPERATION [BYTE...]", make_mcu_answer},
    {"wdt fed", "SECONDS",
     [](Source& source) { source.order("set fed 0 %lld", static_cast<long long>(source.seconds())); }},
    {"fpga id", "N", nullptr, "set fpga 0"},
    {"command", "NAME STATUS [SECONDS]", make_command},
    {"fault none", "", nullptr, "unfault"},
    {"fault", "WHAT CALL[:REQUEST] N|N..M|N+ ERROR|short BYTES", make_fault},
    {"storm", "SEED SECONDS", make_storm},
    {"beat", "PATH [every SECONDS] [until SECONDS]", make_beat},
    {"at", "SECONDS LINE", nullptr},  // the compiler has taken these two off
    {"boot", "N LINE", nullptr},
    {"rtc stopped", "", nullptr, "set rtc-stopped 0 1"},
    {"rtc", "DATE [TIME]", make_rtc},
    {"network real", "", make_network},
    {"expander", "BYTE", nullptr, "set expander 0"},
    {"spi0 alive", "N", nullptr, "set alive 0"},
    {"spi0 status", "N", nullptr, "set status 0"},
    {"spi0 2a", "N", nullptr, "set 2a 0"},
    {"vpfe stalled", "N", nullptr, "set stalled 0"},
    {"cut now", "", nullptr, "end 6 cut"},
    {"cut", "N", nullptr, "set changes-to-cut 0"},
};

}  // namespace

std::string bytes_of(uint32_t number) {
    return byte_of(number) + byte_of(number >> 8) + byte_of(number >> 16) + byte_of(number >> 24);
}

std::string known_lines() {
    std::string list;
    for (const Verb& each : kVerbs)
        list.append(list.empty() ? "one of: " : "; ").append(each.name).append(" ").append(each.more);
    return list;
}

bool translate(Source& source) {
    if (!source.more()) return true;
    for (const Verb& each : kVerbs) {
        if (!source.is(each.name)) continue;
        if (each.make != nullptr) {
            each.make(source);
        } else if (*each.more == '\0') {
            source.order("%s", each.order);
        } else {
            source.order("%s %u", each.order, static_cast<unsigned>(source.number()));
        }
        return source.ends();
    }
    return source.wants(false, known_lines(), source.rest());
}

}  // namespace sim::script
