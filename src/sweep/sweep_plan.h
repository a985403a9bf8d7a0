/// From settings to a sweep: how the host cuts and transforms the samples, and all that the receiver does.
#pragma once

#include <cstdint>
#include <vector>

#include "cal/correction_state.h"
#include "cal/response_filter.h"
#include "device/settings.h"
#include "link/command_list.h"
#include "rf/lo_context.h"
#include "sweep/sample_block.h"

namespace hxr {

/// One capture: a step of the tuning grid, or a part of a step where a preselector band is narrower.
struct SweepStep {
    std::uint32_t step;
    double loFrequency;     ///< Hz
    float gainDb;           ///< level correction
    std::int32_t firstBin;  ///< first bin of the FFT that goes into the trace
    std::int32_t binCount;
    bool inverted;  ///< taken directly: the spectrum comes reversed
    ResponseTaps taps;
};

struct SweepPlan {
    std::int32_t fftSize = 0;       ///< a power of two, 64 or more
    std::int32_t windowLength = 0;  ///< samples that an FFT takes, even
    std::int32_t padLength = 0;     ///< zeros behind them
    std::int32_t stepCount = 0;
    std::int32_t blocksPerStep = 0;
    double vbwRatio = 1.0;  ///< VBW over RBW, at most 1
    std::uint32_t fftsPerStep = 0;
    std::int32_t firstBin = 0;     ///< of the assembled trace: the first point that goes out
    std::vector<SweepStep> steps;  ///< by rising frequency

    /// Samples from one FFT's beginning to the next one's.
    std::int32_t hop() const { return fftSize / 4; }
    std::int32_t samplesPerStep() const { return blocksPerStep * samplesPerBlock; }
};

/// A plan with what belongs to it: the values reported to the application, and the words for the receiver, a packet for
/// each capture behind one that loads the synthesizer.
struct PlannedSweep {
    SweepPlan plan;
    SweepResult result;
    CommandList commands;
};

/// The channel that sweeps.
struct SweptChannel {
    LoContext& synthesizers;  ///< of its unit; as the list's last packet leaves it
    const CorrectionState& corrections;
    int channel;  ///< 0 to 3
};

/// Plans a sweep over settings that their setters have let pass.
/// @throws std::bad_alloc
PlannedSweep planSweep(const SweepSettings& settings, const SweptChannel& swept);

}  // namespace hxr
