#pragma once

#include <cstddef>
#include <cstdint>

namespace hxr {

/// A word with its bytes in the opposite order.
constexpr std::uint32_t reversedBytes(std::uint32_t word) {
    return word >> 24 | (word >> 8 & 0xFF00) | (word << 8 & 0xFF0000) | word << 24;
}

/// A 32-bit number that stands most significant byte first.
inline std::uint32_t loadBig32(const std::byte* bytes) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | std::to_integer<std::uint32_t>(bytes[i]);
    return value;
}

}  // namespace hxr
