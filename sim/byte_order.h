#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace hxr::sim {

/// Stores the low `width` bytes of a value, least significant first.
inline void putLittle(std::span<std::uint8_t> bytes, std::size_t offset, std::size_t width,
                      std::uint64_t value) {
    for (std::size_t i = 0; i < width; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

/// The same for whole words, fast enough for every sample of a stream.
inline void putLittle32(std::uint8_t* to, std::uint32_t value) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(to, &value, sizeof value);
    } else {
        for (std::size_t i = 0; i < sizeof value; ++i) to[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

/// Stores the low `width` bytes of a value, most significant first.
inline void putBig(std::span<std::uint8_t> bytes, std::size_t offset, std::size_t width,
                   std::uint64_t value) {
    for (std::size_t i = 0; i < width; ++i) {
        bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
    }
}

inline std::uint32_t getLittle32(std::span<const std::uint8_t> bytes, std::size_t offset) {
    return static_cast<std::uint32_t>(bytes[offset]) | static_cast<std::uint32_t>(bytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(bytes[offset + 2]) << 16 |
           static_cast<std::uint32_t>(bytes[offset + 3]) << 24;
}

/// Stores an IEEE single, least significant byte first.
inline void putFloat(std::span<std::uint8_t> bytes, std::size_t offset, float value) {
    putLittle(bytes, offset, sizeof value, std::bit_cast<std::uint32_t>(value));
}

}  // namespace hxr::sim
