/// The two decimation filters of a stream: the one that the receiver runs, and the one that runs on the host
/// above a total decimation of 4.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "dsp/samples.h"

namespace hxr {

/// Taps of the receiver's decimation filter. It is symmetric, and the first 95 are sent.
inline constexpr std::size_t decimationTaps = 189;
inline constexpr std::size_t decimationWords = 95;

/// The stored filter of the receiver as the words that it is sent in, tap 0 first and the centre last: flat
/// to 0.4 of the output rate, for a stream of the full bandwidth.
extern const std::array<std::int32_t, decimationWords> defaultDecimationWords;

/// Designs the receiver's filter, whose input runs at five times the hardware rate.
/// @param bandwidthRatio  bandwidth over hardware rate; values below 0.02 count as 0.02
void designDecimationTaps(double bandwidthRatio, std::span<double, decimationTaps> taps);

/// Designs the host's filter ahead of the sample-down: `hostDecimation` x 64 + 1 taps with imaginary parts 0,
/// at the hardware rate of 50 MHz / `hardwareDecimation`. Its delay is `hostDecimation` x 32 samples at that
/// rate.
/// @param outputBandwidth  two-sided, in Hz
std::vector<cf32> designHostTaps(double outputBandwidth, int hardwareDecimation, int hostDecimation);

}  // namespace hxr
