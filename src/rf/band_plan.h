/// Which of the 20 RF bands a frequency falls in, and how the lowest steps are cut at the band edges.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "rf/frequency_grid.h"

namespace hxr {

inline constexpr int bandCount = 20;

/// Below 45 MHz the signal reaches the digitiser directly, without a mixer.
inline constexpr int directBand = 0;

/// Up to this band a channel is mixed by its `lowLo`, above it by its `highLo`.
inline constexpr int lastLowBand = 16;

inline bool isHighBand(int band) { return band > lastLowBand; }

/// A band's settings in the front end.
struct Band {
    float upperEdgeHz;
    std::uint8_t preselectorCode;
    std::uint32_t routing;  ///< transfer of kind 4 behind the preselector's
};

/// The settings of a band, of the nearest one for a number that is none.
const Band& bandSettings(int band);

/// The band of a frequency, or the manual band. Edges belong to the band above; the comparison is in single precision,
/// in which the edges are known.
int bandForFrequency(float hz);

/// Makes every plan from now on, of any unit, use one band whatever the frequency. It is not checked:
/// plans compare it as it stands, and front ends take the settings of the nearest band.
void useManualBand(std::int32_t band);

/// Lets the frequency decide again, as at load.
void useAutomaticBands();

/// One of several captures that a step below 310 MHz is taken in, since a preselector band is narrower than a step.
struct LowStepSplice {
    bool inverted;  ///< taken directly, its spectrum reversed
    std::uint32_t step;
    std::int32_t calIndex;   ///< frequency index for the calibration lookups
    double loFrequency;      ///< Hz
    double centerFrequency;  ///< Hz; in the middle of the capture, `loFrequency` minus this if `inverted`
    double bandFrequency;    ///< Hz, in the band that is used
    std::uint32_t firstBin64, lastBin64;  ///< the used part of the FFT, in 64ths
};

/// All of them, by rising frequency.
extern const std::array<LowStepSplice, 14> lowStepSplices;

/// The captures that a step is taken in; none for a plain step.
std::span<const LowStepSplice> rowsForStep(int step);

/// The attenuator setting, in steps of 5 dB, for a reference level in dBm.
/// @param requestedIndex  0 or more: that one; below 0: automatic
int attenuatorIndexFor(double referenceLevelDbm, int requestedIndex);

}  // namespace hxr
