#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace marl {

namespace detail {

constexpr std::array<uint32_t, 16> make_crc32_table() {
    std::array<uint32_t, 16> table{};
    for (uint32_t nibble = 0; nibble < 16; ++nibble) {
        uint32_t value = nibble;
        for (int bit = 0; bit < 4; ++bit) value = (value >> 1) ^ ((value & 1U) != 0 ? 0xEDB88320U : 0U);
        table[nibble] = value;
    }
    return table;
}

inline constexpr std::array<uint32_t, 16> kCrc32Table = make_crc32_table();

}  // namespace detail

// The reflected CRC-32 of IEEE 802.3 (initial value and final complement all ones). Half a byte at a time: the
// table of whole bytes would be larger than the code of many a service, and nothing here is long.
constexpr uint32_t crc32(std::span<const uint8_t> data) {
    uint32_t crc = 0xFFFFFFFFU;
    for (const uint8_t byte : data) {
        crc ^= byte;
        crc = (crc >> 4) ^ detail::kCrc32Table[crc & 0xFU];
        crc = (crc >> 4) ^ detail::kCrc32Table[crc & 0xFU];
    }
    return ~crc;
}

}  // namespace marl
