/// The filter that a channel runs in the receiver: it flattens the IF response, evens out the two rails and
/// carries the channel's delay.
#pragma once

#include <array>
#include <cstdint>

#include "cal/correction_state.h"

namespace hxr {

inline constexpr std::size_t responseTapCount = 63;

/// A tap of each rail.
struct TapPair {
    float first = 0;
    float second = 0;

    bool operator==(const TapPair&) const = default;
};

using ResponseTaps = std::array<TapPair, responseTapCount>;

/// The taps that pass samples on as they are.
constexpr ResponseTaps passThroughTaps() {
    ResponseTaps taps{};
    taps[responseTapCount / 2] = {1.0F, 1.0F};
    return taps;
}

struct ResponseFilter {
    ResponseTaps taps;
    double gainDb = 0;      ///< what the filter's scale adds to a level, to be added to the level correction
    double delayPhase = 0;  ///< radians
};

/// Designs the filter of a tuning at the present temperature.
///
/// @param useFullGrid  read the full-grid tables also where the low path has its own
/// @param channel      0 to 3
/// @param delay        the channel's delay in seconds
/// @param k            frequency index, 0 or more; above 510 the last calibrated response serves
/// @throws std::bad_alloc
ResponseFilter buildResponseFilter(const CorrectionState& state, bool useFullGrid, int channel, double delay,
                                   int k);

/// Words of the register block that loads a filter into the receiver.
inline constexpr std::size_t tapBlockWords = 68;

/// The block's words: the taps in 16 bits, full scale 32000, the first rail in the low half, with zeros
/// around them.
std::array<std::uint32_t, tapBlockWords> tapBlock(const ResponseTaps& taps);

/// Register address of a channel's block.
constexpr std::uint16_t tapBlockAddress(int channel) {
    return static_cast<std::uint16_t>(252 + 128 * channel);
}

}  // namespace hxr
