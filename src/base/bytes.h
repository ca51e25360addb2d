// Integers in byte buffers, in an order and at an alignment of the buffer's own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace marl {

template <typename T>
constexpr T load_le(const uint8_t* bytes) {
    T value = 0;
    for (size_t i = sizeof(T); i-- > 0;) value = static_cast<T>((value << 8) | bytes[i]);
    return value;
}

template <typename T>
constexpr void store_le(uint8_t* bytes, T value) {
    for (size_t i = 0; i < sizeof(T); ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

}  // namespace marl
