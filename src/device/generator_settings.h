/// What an application wants of the signal generator. It counts from the next initiate on; what is refused changes
/// nothing.
#pragma once

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// Stores the level, rounded to single precision, or the nearest limit.
/// @return `hxrSettingClamped` if a limit was taken; `hxrInvalidConfigurationErr`, with the level stored all the same,
///         if it is in range but the unit has no generator data; `hxrInvalidParameterErr` for a NaN
HXRStatus setVSGLevel(HXRDevice& device, double dBm);

/// Stores a pattern to play, moved up by 3/16 of the sample rate, where the generator works.
///
/// @param samples  `count` I/Q pairs, aligned or not: of 16 bits with type 0, of floats with type 1
/// @return `hxrInvalidParameterErr` for another type or count
/// @throws std::bad_alloc, with nothing changed
HXRStatus setVSGPattern(GeneratorSettings& settings, const void* samples, int count, unsigned type);

/// Stores samples to play as they are, wherever they lie in frequency. A pattern of none plays nothing, and of one that is
/// longer than the generator's memory the first 4096 count.
///
/// @param samples  `count` I/Q pairs
/// @return `hxrInvalidParameterErr` for a count below 0
/// @throws std::bad_alloc, with nothing changed
HXRStatus setVSGPatternDirect(GeneratorSettings& settings, const float* samples, int count);

/// Stores the attenuator's step, which counts until a level is set.
/// @return `hxrInvalidParameterErr` outside 0 to 7
HXRStatus setVSGAtten(GeneratorSettings& settings, int step);

}  // namespace hxr
