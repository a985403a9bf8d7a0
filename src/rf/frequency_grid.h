/// The receiver's fixed frequencies, all exact in double precision, and the step number that they give a tuning.
#pragma once

#include <cmath>

namespace hxr {

/// Complex sample rate of a capture, Hz.
inline constexpr double captureRateHz = 50e6;

/// Spacing of the tuning grid, and width of a step, Hz: the LO of step k is k times this.
inline constexpr double gridSpacingHz = 39'062'500;

/// How far the centre of a tuning lies below its LO, Hz.
inline constexpr double ifOffsetHz = 23'437'500;

/// A step covers its centre plus or minus this, Hz.
inline constexpr double halfStepHz = 19'531'250;

/// A tenth of the grid spacing, Hz.
inline constexpr double fineGridHz = 3'906'250;

inline constexpr int firstStep = 1;
inline constexpr int lastStep = 513;

/// The used part of a capture, in 64ths of an FFT: from the first up to, not including, the last.
inline constexpr unsigned firstUsedBin64 = 7;
inline constexpr unsigned lastUsedBin64 = 57;

/// Clock of the digital front end, Hz.
inline constexpr double frontEndClockHz = 125e6;

/// Hz per count of the 56-bit NCO word.
inline constexpr double ncoResolutionHz = frontEndClockHz / 72'057'594'037'927'936.0;

/// The calibration's frequency index for an LO: that of the grid line at or above it, the LO being rounded to the fine
/// grid first.
inline int frequencyIndexFor(double loHz) {
    constexpr int finePerGrid = 10;
    const int fine = static_cast<int>(std::floor(loHz / fineGridHz + 0.5));
    const int line = fine / finePerGrid;
    return fine > line * finePerGrid ? line + 1 : line;
}

}  // namespace hxr
