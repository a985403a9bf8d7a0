/// Words as the unit keeps them, least significant byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace hxr {

inline std::uint32_t wordAt(std::span<const std::byte> bytes, std::size_t offset) {
    std::uint32_t word = 0;
    for (std::size_t i = sizeof word; i-- > 0;)
        word = word << 8 | std::to_integer<std::uint32_t>(bytes[offset + i]);
    return word;
}

inline void putWord(std::span<std::byte> bytes, std::size_t offset, std::uint32_t word) {
    for (std::size_t i = 0; i < sizeof word; ++i) bytes[offset + i] = static_cast<std::byte>(word >> 8 * i);
}

inline std::uint16_t halfWordAt(std::span<const std::byte> bytes, std::size_t offset) {
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes[offset]) |
                                      std::to_integer<unsigned>(bytes[offset + 1]) << 8);
}

inline void putHalfWord(std::span<std::byte> bytes, std::size_t offset, std::uint16_t word) {
    bytes[offset] = static_cast<std::byte>(word);
    bytes[offset + 1] = static_cast<std::byte>(word >> 8);
}

}  // namespace hxr
