/// The calibration image: which sections are there, its checksum, and the data used where a unit has none.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "hxr_api.h"

namespace hxr::cal {

// The image is read and written in place, so its fields are the host's own: least significant byte first.
static_assert(std::endian::native == std::endian::little);

inline constexpr std::size_t imageSize = sizeof(HXRCalData);

/// The value of a 64-bit field that was never written.
inline constexpr std::uint64_t absentDate = ~std::uint64_t{0};

/// The image as the bytes of the flash.
inline std::span<std::byte> bytesOf(HXRCalData& image) {
    return std::as_writable_bytes(std::span(&image, 1));
}
inline std::span<const std::byte> bytesOf(const HXRCalData& image) {
    return std::as_bytes(std::span(&image, 1));
}

/// Makes all bytes as an erase leaves them.
void fillErased(HXRCalData& image);

/// Whether all bytes are as an erase leaves them.
bool isErased(std::span<const std::byte> bytes);

bool hasFlashHeader(const HXRCalData& image);
/// Whether the unit's synthesizers have factory tuning data.
bool hasTuningData(const HXRCBBData& data);
bool hasPretestCorrections(const HXRCalData& image);

/// Whether the image's sum, without the sections and the history that change after the chamber, is its
/// `checksum`.
bool checksumPasses(const HXRCalData& image);

/// Overwrites the pretest section of `to` with that of `from`.
void copyPretestSection(const HXRCalData& from, HXRCalData& to);

/// Overwrites the chamber section of `to` with that of `from`.
void copyChamberSection(const HXRCalData& from, HXRCalData& to);

/// Makes an image that applies no correction.
void buildDummyCorrections(HXRCalData& image);

/// Copies one calibrated temperature index, 0 to 6, onto another; an index outside copies nothing.
void propagateSingleTempCal(HXRCalData& image, int source, int destination);

/// Nominal temperature of a temperature index in degrees Celsius.
double temperatureOfIndex(int index);

}  // namespace hxr::cal
