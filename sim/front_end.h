#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/shared_lo.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// A channel between its input and its mixer.
struct FrontEnd {
    /// Preselector band 0 to 19; nothing if the words written don't belong to one band.
    std::optional<int> band;
    int attenuatorDb = 0;
    std::uint8_t gainCode = 0;
    int dcOffsetI = 0;
    int dcOffsetQ = 0;
    std::array<std::uint16_t, 2> dacValues{};
};

/// What the routing switches lead to a channel's mixer.
enum class LoPath { none, ownLow, sharedOnLow, ownHigh, sharedOnHigh };

struct PathSwitches {
    LoPath path = LoPath::none;
    /// The switches a, b, c, d and f, in the order that is the same for all channels.
    std::array<bool, 5> settings{};
    int loFilter = 0;  ///< 1 to 7
};

/// Where a capture takes a channel's samples from.
struct CaptureInput {
    bool low = false;
    bool high = false;
    bool fullBand = false;
};

/// The road from the pattern memory to the generator's output.
struct GeneratorPath {
    enum class Range { belowOneGHz, low, high };

    bool on = false;
    Range range = Range::low;
    int attenuatorStep = 0;
    std::uint16_t outputWord = 0;  ///< what the output chip holds
    bool upperFilter = false;

    bool operator==(const GeneratorPath&) const = default;
};

FrontEnd frontEnd(const UnitState& state, std::size_t channel);
PathSwitches pathSwitches(const Expander& expander, std::size_t channel);
CaptureInput captureInput(std::uint32_t inputSelect, std::size_t channel);
/// Off also if the switches don't agree on a range.
GeneratorPath generatorPath(const UnitState& state);

}  // namespace hxr::sim
