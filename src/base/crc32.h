#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace marl {

namespace detail {

constexpr std::array<uint32_t, 256> make_crc32_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t value = byte;
        for (int bit = 0; bit < 8; ++bit) value = (value >> 1) ^ ((value & 1U) != 0 ? 0xEDB88320U : 0U);
        table[byte] = value;
    }
    return table;
}

inline constexpr std::array<uint32_t, 256> kCrc32Table = make_crc32_table();

}  // namespace detail

// The reflected CRC-32 of IEEE 802.3 (initial value and final complement all ones).
constexpr uint32_t crc32(std::span<const uint8_t> data) {
    uint32_t crc = 0xFFFFFFFFU;
    for (const uint8_t byte : data) crc = (crc >> 8) ^ detail::kCrc32Table[(crc ^ byte) & 0xFFU];
    return ~crc;
}

}  // namespace marl
