/// The image that the USB controller boots from: two letters, then records of words to be loaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace hxr {

/// A record's head. One without words is the last: its address is where the firmware begins.
struct BootRecord {
    std::uint32_t words;
    std::uint32_t address;
    std::size_t dataOffset;

    /// The next record; of the last one, the checksum.
    std::uint64_t end() const { return dataOffset + std::uint64_t{words} * sizeof(std::uint32_t); }
};

/// Where the first record is.
inline constexpr std::size_t firstBootRecord = 4;

bool hasBootMark(std::span<const std::byte> image);

/// @return nothing if the head isn't all within the image; the data may still reach past it
std::optional<BootRecord> bootRecordAt(std::span<const std::byte> image, std::uint64_t offset);

/// Whether the sum of all data words is the one that the image holds. Tells on standard output if the unit will fail to
/// boot by it.
bool verifyChecksum(std::span<const std::byte> image);

/// Makes the image's sum that of its data words; nothing if it isn't whole.
void storeChecksum(std::span<std::byte> image);

/// Puts a serial number of eight digits in the place that the firmware has for it, if it has one, and makes the checksum
/// anew. Other numbers leave the image as it is.
void putSerialNumber(std::span<std::byte> image, std::int32_t serial);

/// The firmware's version, high byte first, as the image tells it.
std::optional<std::span<const std::byte, 2>> firmwareVersion(std::span<const std::byte> image);

}  // namespace hxr
