/// What the calibration says for a temperature, a channel, an attenuator setting and a frequency.
///
/// All of these are called on the thread that configures, on real and on dummy images, and none can fail. The
/// frequency index k belongs to the tuned centre frequency k * 39.0625 MHz - 23.4375 MHz; where nothing else
/// is said, channel and indices beyond their tables count as the nearest that there is.
#pragma once

#include <cmath>
#include <cstdint>

#include "cal/correction_state.h"

namespace hxr {

/// Moves the lookups to a temperature in degrees Celsius, or to the forced index. Below the coldest and above
/// the hottest calibrated temperature their data apply as they are.
void updateTemperature(CorrectionState& state, float temperature);

/// A table's entry at the present temperature, from its slices at `tempIndex` and the next.
///
/// In single precision, as the factory's tables are: at fraction 0 or 1 it is exactly one of the two.
inline float atTemperature(const CorrectionState& state, float lower, float upper) {
    const auto fraction = static_cast<float>(state.tempFraction);
    if (fraction == 0.0F) return lower;
    if (fraction == 1.0F) return upper;
    return (1.0F - fraction) * lower + fraction * upper;
}

/// Level correction in dB.
float lookupGain(const CorrectionState& state, int channel, int attenuator, int k);

/// The present entry of `coarseTuneByTemp`, in counts of the timebase DAC.
double interpolateCoarseTune(const CorrectionState& state);

/// Code for the channel's gain register.
std::uint8_t lookupGainCode(const CorrectionState& state, int channel, int k);

/// Offsets that cancel the LO feed-through of a channel's two rails.
struct LoftPair {
    std::int32_t i = 0;
    std::int32_t q = 0;

    bool operator==(const LoftPair&) const = default;
};

/// The overriding pair if there is one; zeros on a unit without pretest data.
LoftPair lookupLoft(const CorrectionState& state, int channel, int k);

/// Phase of a channel in radians, 0 to 2 pi.
float lookupChannelPhase(const CorrectionState& state, int channel, int k);

/// Total level correction of a tuning in dB.
/// @param filterGainDb  of the response filter in use
inline float totalCorrection(float gainDb, double filterGainDb) {
    return static_cast<float>(gainDb + filterGainDb);
}

/// The linear factor of a level in dB.
inline double linearFactor(double levelDb) { return std::sqrt(std::pow(10.0, levelDb / 10.0)); }

}  // namespace hxr
