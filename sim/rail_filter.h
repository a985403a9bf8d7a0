#pragma once

#include <array>
#include <complex>
#include <cstddef>

#include "sim/unit_calibration.h"

namespace hxr::sim {

/// Clock of the digital front end, at which the response filter runs.
inline constexpr double frontEndRateHz = 125e6;

inline constexpr std::size_t railTapCount = 63;

/// A filter of the two rails I and Q, each with real taps of its own.
struct RailTaps {
    std::array<double, railTapCount> i{};
    std::array<double, railTapCount> q{};
};

struct RailGains {
    std::complex<double> i;
    std::complex<double> q;
};

/// What a filter does to either rail at a frequency from the LO, positive or negative. Its delay of 31 ticks
/// of the front end's clock is taken out.
RailGains gainsAt(const RailTaps& taps, double hz);

/// Of two filters at one frequency.
std::array<RailGains, 2> gainsAt(const RailTaps& first, const RailTaps& second, double hz);

/// The filter that makes a measured response even, as the factory means its tables: a low-pass that carries
/// the points at the bins of a 64-point transform, smoothed by a Hamming window.
RailTaps evenedBy(const ResponsePoints& points);

}  // namespace hxr::sim
