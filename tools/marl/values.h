// The kinds of values that arguments have, by the name that they bear in the table of commands.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tool {

struct Kind {
    const char* name;
    const char* meaning;  // with its unit and range
    // A number has a range; text has none and may have a check.
    bool is_number;
    uint32_t least, most;
    bool (*is_right)(const char* text);
};

extern const std::span<const Kind> kinds;

// Null for literal alternatives.
const Kind* find_kind(std::string_view name);

// Whether `text` is of the kind, or one of the alternatives ("on|off").
bool is_value(std::string_view kind, const char* text);

// Decimal, or hexadecimal with 0x; K and M behind it multiply by 1024 and 1048576. False for anything else.
bool parse_number(const char* text, uint32_t& out);

// An address and the length of its network or its netmask, as dotted quads. False for anything else.
struct Subnet {
    char address[16];
    char mask[16];
};
bool parse_subnet(const char* text, Subnet& out);

// Takes the part before the next `separator` off the front; all of it without one.
std::string_view take_part(std::string_view& text, char separator);

}  // namespace tool
