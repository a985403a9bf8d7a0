#pragma once

#include <cstdint>

namespace hxr {

/// A word with its bytes in the opposite order.
constexpr std::uint32_t reversedBytes(std::uint32_t word) {
    return word >> 24 | (word >> 8 & 0xFF00) | (word << 8 & 0xFF0000) | word << 24;
}

}  // namespace hxr
