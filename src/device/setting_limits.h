/// The ranges of all settings, and the two ways to keep within them: a physical quantity is moved to its nearest limit,
/// a selector or count out of range is refused.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "hxr_api.h"

namespace hxr {

template <typename T>
struct Limits {
    T lowest, highest;

    constexpr bool contain(T value) const { return lowest <= value && value <= highest; }
};

inline constexpr Limits<double> frequencyLimits{100e3, 20e9};        ///< Hz: channels, shared, sweep
inline constexpr double smallestSweepSpan = 100.0;                   ///< Hz
inline constexpr Limits<double> delayLimits{-25e-9, 25e-9};          ///< seconds
inline constexpr Limits<double> streamBandwidthLimits{20e3, 4e7};    ///< Hz
inline constexpr Limits<double> resolutionLimits{100.0, 10e6};       ///< Hz: RBW and VBW
inline constexpr Limits<double> sweepTimeLimits{1e-6, 1.0};          ///< seconds
inline constexpr Limits<float> generatorLevelLimits{-80.0F, 10.0F};  ///< dBm
inline constexpr Limits<float> fanSetPointLimits{5.0F, 60.0F};       ///< degrees Celsius

inline constexpr Limits<double> fullBandLoLimits{0.0, 22e9};  ///< Hz: all that a channel can be mixed with

inline constexpr Limits<int> attenuatorLimits{-1, 6};      ///< -1 is automatic
inline constexpr Limits<int> attenuatorIndexLimits{0, 6};  ///< where there is no automatic
inline constexpr Limits<int> inputLimits{0, 3};            ///< a channel of one unit
inline constexpr Limits<int> captureBlockLimits{1,
                                                255};  ///< with their status they fit a slot of the endpoint
inline constexpr Limits<int> temperatureIndexLimits{0, 6};
inline constexpr Limits<int> decimationLimits{1, 256};  ///< a power of two
inline constexpr int mostHardwareDecimation = 4;        ///< the host does the rest
inline constexpr Limits<int> contextIntervalLimits{3, 4095};
inline constexpr Limits<int> patternLimits{16, 4096};  ///< samples, in whole blocks
inline constexpr int patternBlock = 16;
inline constexpr Limits<int> generatorStepLimits{0, 7};  ///< of its attenuator

/// What a selector may be, at most.
inline constexpr unsigned highestSwitch = 1;  ///< data type, full scale, edge, mode, endianness
inline constexpr unsigned highestDetector = 2;
inline constexpr unsigned highestVideoUnits = 3;
inline constexpr unsigned highestScale = 2;
inline constexpr unsigned highestWindow = 2;

/// Stores a physical quantity or, out of range, the nearest limit.
/// @return `hxrNoError`; `hxrSettingClamped`; `hxrInvalidParameterErr` for a NaN, with nothing stored
template <typename T>
HXRStatus storeWithin(Limits<T> limits, T value, T& setting) {
    if constexpr (std::is_floating_point_v<T>) {
        if (std::isnan(value)) return hxrInvalidParameterErr;
    }
    setting = std::clamp(value, limits.lowest, limits.highest);
    return setting == value ? hxrNoError : hxrSettingClamped;
}

/// Stores a selector.
/// @return `hxrNoError`; `hxrInvalidParameterErr` above the highest, with nothing stored
template <typename T>
HXRStatus storeSelector(unsigned highest, unsigned selector, T& setting) {
    if (selector > highest) return hxrInvalidParameterErr;
    setting = static_cast<T>(selector);
    return hxrNoError;
}

/// Stores an attenuator index, which settings hold as a floating-point number.
/// @return `hxrNoError`; `hxrInvalidParameterErr` out of range, with nothing stored
inline HXRStatus storeAttenuator(int index, double& setting) {
    if (!attenuatorLimits.contain(index)) return hxrInvalidParameterErr;
    setting = index;
    return hxrNoError;
}

}  // namespace hxr
