/// The analysis windows of the sweep.
#pragma once

#include <span>

#include "dsp/samples.h"

namespace hxr {

enum WindowKind : int { windowFlatTop = 0, windowNuttall = 1, windowConfinedGaussian = 2 };

/// Fills `out`, 2 entries or more, with a window; any other kind gives the flat top.
void fillWindow(int kind, std::span<double> out);

/// The window as the transform multiplies it, imaginary parts 0: `padding` zeros at the end, and scaled to a
/// mean of 1 over all entries, so that a tone's level doesn't depend on the window.
void buildSweepWindow(int kind, int padding, std::span<cf32> out);

}  // namespace hxr
