#include "sweep/sweep_fft.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "dsp/vector.h"
#include "sweep/window.h"

namespace hxr {
namespace {

// The factors are single-precision numbers, used as written here.
constexpr float decibelsPerNeper = 4.3429446F;  // of a power
constexpr float nepersPerAmplitudeDecibel = 0.115129255F;
constexpr float millivoltDecibels = 46.9897F;  // 50 ohms: 10 log10 of 50,000
constexpr float millivoltFactor = 223.6F;      // its square root

void powerToDecibels(float* values, int n) {
    dspLnF32(values, values, n);
    dspMulConstF32(values, decibelsPerNeper, values, n);
}

}  // namespace

SweepFft::SweepFft(const SweepPlan& plan, const SweepSettings& settings)
    : windowLength_(plan.windowLength),
      fftSize_(plan.fftSize),
      padLength_(plan.padLength),
      videoUnits_(settings.sweepVideoUnits),
      detector_(settings.sweepDetector),
      scale_(settings.sweepScale),
      ffts_(static_cast<std::int32_t>(plan.fftsPerStep)),
      hop_(plan.hop()),
      alpha_(plan.vbwRatio),
      oneMinusAlpha_(1.0 - plan.vbwRatio),
      fftSpec_(std::countr_zero(static_cast<std::uint32_t>(plan.fftSize)), fftScaleForward, fftFast),
      fftWork_(fftSpec_.makeWork()),
      window_(platform::makeAlignedArray<cf32>(static_cast<std::size_t>(fftSize_))),
      work_(platform::makeAlignedArray<cf32>(static_cast<std::size_t>(fftSize_))),
      current_(platform::makeAlignedArray<float>(static_cast<std::size_t>(fftSize_))),
      running_(platform::makeAlignedArray<float>(static_cast<std::size_t>(fftSize_))) {
    buildSweepWindow(static_cast<int>(settings.sweepWindow), padLength_,
                     {window_.get(), static_cast<std::size_t>(fftSize_)});
}

void SweepFft::oneSpectrum(const cf32* samples, float* out) {
    cf32* const work = work_.get();
    dspMulCf32(samples, window_.get(), work, windowLength_);
    dspZero64(work + windowLength_, padLength_);
    fftForwardCf32(work, work, fftSpec_, fftWork_.get());

    // Negative frequencies, the FFT's second half, come first.
    const auto measure = videoUnits_ == videoVoltage ? dspMagnitudeCf32 : dspPowerCf32;
    const std::int32_t half = fftSize_ / 2;
    const std::int32_t below = std::clamp(half - bins_.first, 0, bins_.count);
    const std::int32_t above = bins_.first + below - half;
    measure(work + half + bins_.first, out, below);
    measure(work + above, out + below, bins_.count - below);
    if (videoUnits_ == videoLog) powerToDecibels(out, bins_.count);
}

void SweepFft::averageAll(const cf32* samples, float* out) {
    dspZero32(out, bins_.count);
    for (std::int32_t i = 0; i < ffts_; ++i) {
        oneSpectrum(samples + std::ptrdiff_t{i} * hop_, current_.get());
        dspAddF32(out, current_.get(), out, bins_.count);
    }
    dspMulConstF32(out, 1.0F / static_cast<float>(ffts_), out, bins_.count);
}

void SweepFft::runningAverage(double oldWeight, double newWeight) {
    float* const running = running_.get();
    dspMulConstF32(running, static_cast<float>(oldWeight), running, bins_.count);
    dspMulConstF32(current_.get(), static_cast<float>(newWeight), current_.get(), bins_.count);
    dspAddF32(running, current_.get(), running, bins_.count);
}

/// The first FFTs form a plain mean; once a new one weighs no more than VBW over RBW, the average runs on with that
/// weight and its maximum is held.
void SweepFft::holdMaximum(const cf32* samples, float* out) {
    dspZero32(running_.get(), bins_.count);
    double weight = 1.0;
    double further = 2.0;
    bool first = true;
    for (std::int32_t i = 0; i < ffts_; ++i) {
        oneSpectrum(samples + std::ptrdiff_t{i} * hop_, current_.get());
        if (weight > alpha_) {
            runningAverage(1.0 - weight, weight);
            weight = 1.0 / further++;
            continue;
        }
        runningAverage(oneMinusAlpha_, alpha_);
        if (first) {
            dspCopy32(running_.get(), out, bins_.count);
            first = false;
        } else {
            dspMaxF32(running_.get(), out, out, bins_.count);
        }
    }
    // One over the number of FFTs can lie a rounding above VBW over RBW: then all of them went into the mean.
    if (first) dspCopy32(running_.get(), out, bins_.count);
}

void SweepFft::convertUnits(float* values) const {
    const std::int32_t n = bins_.count;
    const bool millivolts = scale_ == scaleMillivolts;
    if (videoUnits_ == videoLog) {
        if (!millivolts) return;
        dspAddConstF32(values, millivoltDecibels, values, n);
        dspMulConstF32(values, nepersPerAmplitudeDecibel, values, n);
        dspExpF32(values, values, n);
        return;
    }
    const bool voltages = videoUnits_ == videoVoltage;
    if (millivolts) {
        if (!voltages) dspSqrtF32(values, values, n);
        dspMulConstF32(values, millivoltFactor, values, n);
    } else {
        if (voltages) dspSqrF32(values, values, n);
        powerToDecibels(values, n);
    }
}

void SweepFft::correctLevel(float gainDb, float* values) const {
    if (scale_ == scaleDbm) dspAddConstF32(values, gainDb, values, bins_.count);
    if (scale_ == scaleMillivolts) {
        const double factor = std::pow(10.0, double{gainDb} * 0.05);
        dspMulConstF32(values, static_cast<float>(factor), values, bins_.count);
    }
}

void SweepFft::transformStep(const SweepStep& step, const cf32* samples, float* trace) {
    // The bins of an inverted step count from the highest frequency.
    bins_ = {step.inverted ? fftSize_ - step.firstBin - step.binCount : step.firstBin, step.binCount};
    if (videoUnits_ == videoSample) {
        oneSpectrum(samples, trace);
    } else if (detector_ == detectorAverage) {
        averageAll(samples, trace);
    } else {
        holdMaximum(samples, trace);
    }
    convertUnits(trace);
    correctLevel(step.gainDb, trace);
    if (step.inverted) dspFlip32(trace, trace, bins_.count);
}

}  // namespace hxr
