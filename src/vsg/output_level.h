#pragma once

#include <cstdint>
#include <span>

namespace hxr {

/// Steps of the generator's output attenuator.
inline constexpr std::size_t attenuatorSteps = 8;

/// How the generator makes a level.
struct OutputLevel {
    std::uint32_t step;  ///< of the attenuator, 0 to 7
    float scale;         ///< of the pattern's amplitude
};

/// Attenuates as much as a level allows, so that the modulator stays near the scale of 0.5 at which it was measured. The
/// scale is above that only for a level that even the least attenuation doesn't reach, and 0 if nothing is known of that.
///
/// @param levels  in dBm, of a scale of 0.5 at each step; steps that were never measured, NaN, are passed over
OutputLevel outputLevelFor(float dBm, std::span<const float, attenuatorSteps> levels);

}  // namespace hxr
