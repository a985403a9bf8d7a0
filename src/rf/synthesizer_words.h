/// What the builders of synthesizer words share.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "link/words.h"
#include "rf/register_images.h"

namespace hxr {

inline void appendRun(std::vector<words::Word>& run, std::span<const words::Word> further) {
    run.insert(run.end(), further.begin(), further.end());
}
inline void appendRun(std::vector<words::Word>& run, std::initializer_list<words::Word> further) {
    run.insert(run.end(), further);
}

inline void appendRegisters(std::vector<words::Word>& run, words::Chip chip,
                            std::span<const RegisterValue> rows) {
    for (const auto& [address, value] : rows) run.push_back(words::chipWrite(chip, address, value));
}

/// A pause between writes to a chip, with the filler that such lists use.
inline std::array<words::Word, 4> chipPause(std::uint16_t ticks) {
    return {words::pause(ticks), words::filler, words::filler, words::filler};
}

/// A frequency doubled until it is in a VCO's range, and how often.
struct Doubled {
    double hz;
    std::uint32_t halvings;  ///< of the VCO's output, back to the frequency
};

inline Doubled doubledTo(double lowestHz, double hz) {
    // Only a frequency that is none gets this far.
    constexpr std::uint32_t mostHalvings = 64;
    Doubled doubled{hz, 0};
    while (doubled.hz < lowestHz && doubled.halvings < mostHalvings)
        doubled = {2 * doubled.hz, doubled.halvings + 1};
    return doubled;
}

/// The code of a synthesizer's output filter, the same in the channels' low LOs and in the shared one.
constexpr words::Word outputFilterCode(double hz) {
    if (hz < 1.05e9) return 0;
    if (hz < 1.75e9) return 1;
    if (hz <= 2.85e9) return 2;
    if (hz <= 4.85e9) return 1;
    return 2;
}

/// The row of a table at a position, the nearest one beyond its ends.
inline std::size_t rowIndex(double position, std::size_t rows) {
    return static_cast<std::size_t>(std::clamp(position, 0.0, static_cast<double>(rows - 1)));
}

}  // namespace hxr
