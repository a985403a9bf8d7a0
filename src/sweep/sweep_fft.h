#pragma once

#include "dsp/fft.h"
#include "dsp/samples.h"
#include "platform/aligned_memory.h"
#include "sweep/sweep_plan.h"

namespace hxr {

/// In which domain a sweep's detector works.
enum VideoUnits : std::uint32_t { videoLog = 0, videoVoltage = 1, videoPower = 2, videoSample = 3 };

/// How the FFTs of a step are combined; anything but the average holds the maximum of a running average.
enum Detector : std::uint32_t { detectorAverage = 0 };

/// In which units the trace comes out.
enum SweepScale : std::uint32_t { scaleDbm = 0, scaleMillivolts = 1, scaleFullScale = 2 };

/// Makes one stretch of a trace of the samples of one capture: window, FFTs, detector, units, level correction. A
/// full-scale tone is 0 dB, whatever the window and size. Each belongs to one thread; nothing is allocated once it is
/// made.
class SweepFft {
  public:
    /// @throws std::bad_alloc
    SweepFft(const SweepPlan& plan, const SweepSettings& settings);

    /// Transforms all samples that the plan takes at a step.
    /// @param trace  receives the step's bins, lowest frequency first
    void transformStep(const SweepStep& step, const cf32* samples, float* trace);

  private:
    /// Bins of an FFT with its lowest frequency first.
    struct Bins {
        std::int32_t first, count;
    };

    void oneSpectrum(const cf32* samples, float* out);
    void averageAll(const cf32* samples, float* out);
    void holdMaximum(const cf32* samples, float* out);
    void runningAverage(double oldWeight, double newWeight);
    void convertUnits(float* values) const;
    void correctLevel(float gainDb, float* values) const;

    std::int32_t windowLength_, fftSize_, padLength_;
    std::uint32_t videoUnits_, detector_, scale_;
    std::int32_t ffts_, hop_;
    double alpha_, oneMinusAlpha_;  // weights of a new spectrum and of the average so far
    FftPlanCf32 fftSpec_;
    platform::AlignedArray<cf32> fftWork_;
    platform::AlignedArray<cf32> window_;
    platform::AlignedArray<cf32> work_;
    platform::AlignedArray<float> current_;
    platform::AlignedArray<float> running_;
    Bins bins_{};  // of the present step: what isn't used isn't worked out
};

}  // namespace hxr
