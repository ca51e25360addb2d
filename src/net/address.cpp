// Addresses as text.
#include <cctype>
#include <cstring>

#include "base/diag.h"
#include "libmarl/net_live.h"
#include "libmarl/network.h"

namespace {

bool has_hex_prefix(const char* text) { return text[0] == '0' && (text[1] == 'x' || text[1] == 'X'); }

uint32_t base_of(const char* text) {
    if (has_hex_prefix(text) && isxdigit(static_cast<unsigned char>(text[2])) != 0) return 16;
    return text[0] == '0' ? 8 : 10;
}

// The value of a hexadecimal digit; above every base for any other character.
uint32_t digit_value(char character) {
    const auto digit = static_cast<unsigned char>(character);
    if (isxdigit(digit) == 0) return UINT32_MAX;
    return static_cast<uint32_t>(isdigit(digit) != 0 ? digit - '0' : toupper(digit) - 55);
}

}  // namespace

uint32_t NetStrToUL(const char* text, const char** end, uint32_t base) {
    uint32_t value = 0;
    if (text != nullptr) {
        if (base == 0) base = base_of(text);
        if (base == 16 && has_hex_prefix(text)) text += 2;
        for (; digit_value(*text) < base; ++text) value = value * base + digit_value(*text);
    }
    if (end != nullptr) *end = text;
    return value;
}

uint32_t NetStrToAddr(const char* text) {
    uint32_t address = 0;
    if (text == nullptr) return address;
    for (unsigned octet = 0; octet < 4; ++octet) {
        address |= (NetStrToUL(text, &text, 10) & 0xFF) << (8 * octet);
        if (*text != '\0') ++text;
    }
    return address;
}

int NetIsBroadcast(const char* address, const char* mask) {
    const uint32_t host_bits = ~NetStrToAddr(mask);
    if ((NetStrToAddr(address) & host_bits) != host_bits) return 0;
    marl::diag::out("[libmarl] The ip %s is broadcast addr\n", address != nullptr ? address : "");
    return 1;
}

int NetSameSubnet(const char* name, const char* gateway, const char* mask) {
    char address_text[MARL_NET_VALUE_SIZE] = {};
    char mask_text[MARL_NET_VALUE_SIZE] = {};
    NetGetIpMask(name, address_text, sizeof address_text, mask_text, sizeof mask_text);
    const uint32_t stored = NetStrToAddr(mask_text);
    const uint32_t other = mask != nullptr ? NetStrToAddr(mask) : stored;
    return (stored & NetStrToAddr(address_text)) == (other & NetStrToAddr(gateway)) ? 1 : 0;
}
