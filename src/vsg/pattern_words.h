/// From a pattern to the words of the generator's memory.
#pragma once

#include <complex>
#include <cstdint>
#include <span>
#include <vector>

#include "hxr_api.h"

namespace hxr {

/// Samples that the generator's memory holds.
inline constexpr std::size_t patternMemory = 4096;

/// What a unit's modulator does wrong at a frequency.
struct ModulatorErrors {
    double gain = 1.0;                    ///< of I against Q
    double phase = 0.0;                   ///< skew of the rails, radians
    double offsetI = 0.0, offsetQ = 0.0;  ///< that cancel its feed-through, in halves of full scale

    /// @param k  frequency index, 0 to 513; what the factory never measured there counts as right
    static ModulatorErrors measuredAt(const HXRCalData& image, std::size_t k);
};

/// Which rail is the memory's first: below an LO of 1 GHz the way out turns the spectrum over, and above it the rails do.
enum class RailOrder { iFirst, qFirst };

/// Works a pattern out for a modulator: corrected beforehand for its errors, scaled, and rounded to the rails' 14 bits.
/// What is beyond full scale stays there.
///
/// @return a word for each sample, the first rail in its low half
/// @throws std::bad_alloc
std::vector<std::uint32_t> patternWords(std::span<const std::complex<float>> pattern,
                                        const ModulatorErrors& errors, float scale, RailOrder order);

}  // namespace hxr
