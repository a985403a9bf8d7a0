#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace hxr::sim {

/// Bytes of a calibration image, flash pages 128 to 1151.
inline constexpr std::size_t imageBytes = 0x800000;

/// What a synthetic calibration image holds. An absent section reads 0xFF, as erased flash does.
struct SyntheticImageOptions {
    std::uint32_t serialNumber = 12345678;
    /// Date of the calibration, seconds since 1970 in UTC.
    std::uint64_t calDate = 1'710'000'000;
    bool cbb = true;
    bool pretest = true;
    bool chamber = true;
    bool goodChecksum = true;
    /// What the generator's modulator does wrong is told; otherwise it looks ideal.
    bool modulatorErrors = true;
    /// Even rails and flat responses: ratio 1, phase 0, level 0 everywhere.
    bool idealResponse = false;
};

/// Builds an image with smooth, non-flat tables in every section, the same for the same options.
std::vector<std::uint8_t> makeSyntheticImage(const SyntheticImageOptions& options);

/// An image of erased flash.
std::vector<std::uint8_t> makeBlankImage();

/// The sum that belongs into the image's checksum field: over all 32-bit words, with the CBB and pretest
/// sections, the field itself and the coarse-tune history counted as erased.
std::uint32_t imageChecksum(std::span<const std::uint8_t> image);

/// Writes the right checksum into an image that a test has changed.
void sealImage(std::span<std::uint8_t> image);

}  // namespace hxr::sim
