#include "sim/generator_settings.h"

#include <algorithm>
#include <cmath>

#include "sim/image_layout.h"
#include "sim/tuning.h"

namespace hxr::sim {
namespace {

/// Ways from the VCO to the modulator, by the output chip and the filter behind it.
constexpr struct {
    std::uint16_t outputWord;
    bool upperFilter;
    double factor;
} highWays[] = {{0x02AE, false, 0.5}, {0x02AE, true, 1.0}, {0x02B6, false, 1.0}, {0x02B6, true, 2.0}};

std::optional<double> modulatorLoHz(const UnitState& state, const GeneratorPath& path) {
    if (path.range != GeneratorPath::Range::high) return sharedLoHz(state);
    const auto vco = state.synthesizers.sharedVcoHz(state.expander);
    for (const auto& way : highWays) {
        if (vco && way.outputWord == path.outputWord && way.upperFilter == path.upperFilter)
            return *vco * way.factor;
    }
    return std::nullopt;
}

/// The row ahead of which a frequency lies. Synthesizers are right to microhertz.
std::size_t rowAt(double hz) {
    constexpr double gridHz = 39'062'500.0;
    constexpr double lowest = 3.0, highest = 512.0;
    return static_cast<std::size_t>(std::clamp(std::floor(std::round(hz) / gridHz) + 1.0, lowest, highest));
}

}  // namespace

std::optional<GeneratorSettings> generatorSettings(const UnitState& state, const Oscillator& oscillator) {
    constexpr double intermediateHz = 23'437'500.0;
    const GeneratorPath path = generatorPath(state);
    if (!path.on || !state.registers.read(PatternMemory::first)) return std::nullopt;
    const auto loHz = modulatorLoHz(state, path);
    if (!loHz) return std::nullopt;
    return GeneratorSettings{.path = path,
                             .loHz = *loHz,
                             .k = rowAt(*loHz - intermediateHz),
                             .timebaseRatio = oscillator.frequencyRatio(state.timebaseDac),
                             .patternChanges = state.patternChanges};
}

std::vector<std::uint32_t> loadedPattern(const UnitState& state) {
    std::vector<std::uint32_t> pattern;
    for (std::size_t n = 0; n <= state.patternLastAddress && n < PatternMemory::size; ++n)
        pattern.push_back(
            state.registers.read(static_cast<std::uint16_t>(PatternMemory::first + n)).value_or(0));
    return pattern;
}

}  // namespace hxr::sim
