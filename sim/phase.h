#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>

namespace hxr::sim {

/// Sample rate of a capture.
inline constexpr double captureRateHz = 50e6;

/// A phase, or a phase per sample, as a fraction of a turn in 64 bits. It wraps by itself, so that the phase
/// of any sample since 1970 is one exact multiplication away.
using Turns = std::uint64_t;

inline Turns turns(double value) {
    constexpr int bits = 64;
    const double fraction = value - std::floor(value);
    // Counted in half units first: a fraction that has been rounded up to a whole turn then still fits.
    return static_cast<Turns>(std::ldexp(fraction, bits - 1)) << 1;
}

/// How far a frequency turns from one capture sample to the next. Differences of these are exact, so that
/// captures at different centres see the same phase of the air.
inline Turns turnsPerSample(double hz) { return turns(hz / captureRateHz); }

/// Where a turning phase stands at a sample counted from 1970.
inline Turns phaseAt(Turns perSample, std::int64_t sample) {
    return perSample * static_cast<std::uint64_t>(sample);
}

/// A place in something that repeats after `length`, in its own units.
struct LoopPlace {
    std::uint64_t whole;
    double fraction;  ///< 0 to below 1
};

/// @param length  below 2^32
inline LoopPlace loopPlaceAt(Turns phase, std::uint64_t length) {
    constexpr int half = 32;
    constexpr std::uint64_t low = (std::uint64_t{1} << half) - 1;
    const std::uint64_t place = (phase >> half) * length + ((phase & low) * length >> half);
    return {place >> half, std::ldexp(static_cast<double>(place & low), -half)};
}

inline std::complex<double> onCircle(Turns phase) {
    constexpr int bits = 64;
    const double radians =
        std::ldexp(static_cast<double>(static_cast<std::int64_t>(phase)), -bits) * 2.0 * std::numbers::pi;
    return {std::cos(radians), std::sin(radians)};
}

}  // namespace hxr::sim
