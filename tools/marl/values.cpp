#include "values.h"

#include <arpa/inet.h>
#include <libmarl.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tool {
namespace {

bool is_address(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address) == 1;
}

bool is_subnet(const char* text) {
    Subnet subnet;
    return parse_subnet(text, subnet);
}

bool is_mac(const char* text) {
    for (int i = 0; i < 17; ++i) {
        if (i % 3 == 2 ? text[i] != ':' : isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
    }
    return text[17] == '\0';
}

bool is_host(const char* text) {
    const size_t length = strlen(text);
    return length > 0 && length < 54 && text[0] != '-' &&
           strspn(text, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-.") == length;
}

bool is_variable_name(const char* text) {
    const size_t length = strlen(text);
    return length > 0 && length <= MARL_ENV_NAME_MAX && strchr(text, '=') == nullptr;
}

bool is_variable_value(const char* text) { return strlen(text) <= MARL_ENV_VALUE_MAX; }

bool is_filled(const char* text) { return *text != '\0'; }

constexpr Kind number(const char* name, const char* meaning, uint32_t least, uint32_t most) {
    return {name, meaning, true, least, most, nullptr};
}

constexpr Kind text(const char* name, const char* meaning, bool (*is_right)(const char*)) {
    return {name, meaning, false, 0, 0, is_right};
}

constexpr Kind kKinds[] = {
    number("LINE", "a GPIO line, 0 to 71", 0, MARL_GPIO_LINES - 1),
    number("INPUT", "an input of the expander, 0 to 7", 0, 7),
    number("OUTPUT", "an output of the expander, 0 to 7", 0, 7),
    number("OFFSET", "the place of a CMOS byte, 0 to 255", 0, 255),
    number("COUNT", "a number of CMOS bytes, 1 to 64", 1, MARL_CMOS_READ_MAX),
    number("BYTE", "the value of a byte, 0 to 255", 0, 255),
    number("BYTES", "a number of bytes; K and M behind it count 1024 and 1048576", 0, UINT32_MAX),
    number("SIZE", "a number of bytes, 1 at least; K and M as behind BYTES", 1, UINT32_MAX),
    number("MS", "a time in milliseconds, 1 to 3600000", 1, 3600000),
    number("PERIOD", "a watchdog period in milliseconds, 1000 to 2147483647", 1000, INT32_MAX),
    number("SECONDS", "a time in seconds, 1 to 86400", 1, 86400),
    text("NAME", "the name of a boot variable, 1 to 23 characters without =", is_variable_name),
    text("VALUE", "the value of a boot variable, up to 255 characters", is_variable_value),
    text("IP/MASK", "an IPv4 address with the length of its network, 1 to 32, or its netmask", is_subnet),
    text("GATEWAY", "the IPv4 address of a gateway", is_address),
    text("SERVER", "the IPv4 address of a DNS server", is_address),
    text("MAC", "an Ethernet address as 00:12:31:4a:0c:5e", is_mac),
    text("HOST", "a host name of letters, digits, - and ., up to 53 characters", is_host),
    text("TARGET", "a partition by its name or as mtdN, or fpga, the flash of the FPGA", is_filled),
    text("FILE", "a file of the machine that the tool runs on", is_filled),
};

// Whether it is one of the alternatives in "on|off".
bool is_alternative(std::string_view alternatives, std::string_view text) {
    while (!alternatives.empty()) {
        if (take_part(alternatives, '|') == text) return true;
    }
    return false;
}

}  // namespace

constinit const std::span<const Kind> kinds = kKinds;

std::string_view take_part(std::string_view& text, char separator) {
    const size_t length = text.find(separator);
    if (length == std::string_view::npos) {
        const std::string_view all = text;
        text = {};
        return all;
    }
    const std::string_view part(text.data(), length);
    text.remove_prefix(length + 1);
    return part;
}

const Kind* find_kind(std::string_view name) {
    for (const Kind& kind : kinds) {
        if (kind.name == name) return &kind;
    }
    return nullptr;
}

bool is_value(std::string_view kind, const char* text) {
    const Kind* known = find_kind(kind);
    if (known == nullptr) return is_alternative(kind, text);
    if (!known->is_number) return known->is_right(text);
    uint32_t value = 0;
    return parse_number(text, value) && value >= known->least && value <= known->most;
}

bool parse_number(const char* text, uint32_t& out) {
    const bool is_hexadecimal = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char* digits = is_hexadecimal ? text + 2 : text;
    if (isxdigit(static_cast<unsigned char>(*digits)) == 0) return false;
    char* end = nullptr;
    unsigned long long value = strtoull(digits, &end, is_hexadecimal ? 16 : 10);
    if (end == digits || value > UINT32_MAX) return false;
    if (*end == 'K') value <<= 10;
    if (*end == 'M') value <<= 20;
    if (*end == 'K' || *end == 'M') ++end;
    out = static_cast<uint32_t>(value);
    return *end == '\0' && value <= UINT32_MAX;
}

bool parse_subnet(const char* text, Subnet& out) {
    const char* slash = strchr(text, '/');
    if (slash == nullptr || slash - text >= static_cast<long>(sizeof out.address)) return false;
    snprintf(out.address, sizeof out.address, "%.*s", static_cast<int>(slash - text), text);
    uint32_t length = 0;
    if (parse_number(slash + 1, length) && length >= 1 && length <= 32) {
        const in_addr mask{htonl(UINT32_MAX << (32 - length))};
        inet_ntop(AF_INET, &mask, out.mask, sizeof out.mask);
    } else {
        snprintf(out.mask, sizeof out.mask, "%s", slash + 1);
    }
    return is_address(out.address) && is_address(out.mask);
}

}  // namespace tool
