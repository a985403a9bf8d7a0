#pragma once

namespace hxr::sim {

/// Width of the slope from pass to stop band that the window makes, in cycles per sample, times half the
/// filter's length.
inline constexpr double lowPassSlope = 2.51;

/// A Kaiser window that keeps a filter's stop band and ripple 80 dB down.
///
/// @param place  from the middle, -1 to 1
double kaiserWindow(double place);

/// Response over time of an ideal low-pass filter of gain 1, to be cut to length by the window.
///
/// @param time    in samples from the middle
/// @param cutoff  in cycles per sample; the middle of the slope that the window makes of it
double idealLowPass(double time, double cutoff);

}  // namespace hxr::sim
