#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/front_end.h"
#include "sim/status_record.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// What the registers say of the generator while it plays.
struct GeneratorSettings {
    GeneratorPath path;
    double loHz = 0.0;                 ///< of the modulator
    std::size_t k = 0;                 ///< row of the unit's tables over frequency
    double timebaseRatio = 1.0;        ///< of the timebase over what it should be
    std::uint64_t patternChanges = 0;  ///< another number for another pattern

    bool operator==(const GeneratorSettings&) const = default;
};

/// Nothing while the generator is off, has no LO or was never given a pattern.
///
/// On its way to the modulator the shared synthesizer's output is taken as it is up to 5.6 GHz; above, its VCO is, with
/// half or twice its frequency where that isn't within 8 and 16 GHz.
std::optional<GeneratorSettings> generatorSettings(const UnitState& state, const Oscillator& oscillator);

/// The words of the pattern.
std::vector<std::uint32_t> loadedPattern(const UnitState& state);

}  // namespace hxr::sim
