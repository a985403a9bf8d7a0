#include "sweep/sweep_fft.h"

#include <algorithm>
#include <bit>

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
    const int half = fftSize_ / 2;
    const auto magnitudes = videoUnits_ == videoVoltage ? dspMagnitudeCf32 : dspPowerCf32;
    magnitudes(work + half, out, half);
    magnitudes(work, out + half, half);
    if (videoUnits_ == videoLog) powerToDecibels(out, fftSize_);
}

void SweepFft::averageAll(const cf32* samples, float* outMin, float* outMax) {
    dspZero32(outMin, fftSize_);
    for (std::int32_t i = 0; i < ffts_; ++i) {
        oneSpectrum(samples + std::ptrdiff_t{i} * hop_, current_.get());
        dspAddF32(outMin, current_.get(), outMin, fftSize_);
    }
    dspMulConstF32(outMin, 1.0F / static_cast<float>(ffts_), outMin, fftSize_);
    dspCopy32(outMin, outMax, fftSize_);
}

void SweepFft::runningAverage(double oldWeight, double newWeight) {
    float* const running = running_.get();
    dspMulConstF32(running, static_cast<float>(oldWeight), running, fftSize_);
    dspMulConstF32(current_.get(), static_cast<float>(newWeight), current_.get(), fftSize_);
    dspAddF32(running, current_.get(), running, fftSize_);
}

/// The first FFTs form a plain mean; once a new one weighs no more than VBW over RBW, the average runs on with that
/// weight and its extremes are held.
void SweepFft::holdExtremes(const cf32* samples, float* outMin, float* outMax) {
    float* const running = running_.get();
    dspZero32(outMin, fftSize_);
    dspZero32(outMax, fftSize_);
    dspZero32(running, fftSize_);
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
            dspCopy32(running, outMin, fftSize_);
            dspCopy32(running, outMax, fftSize_);
            first = false;
        } else {
            dspMinF32(running, outMin, outMin, fftSize_);
            dspMaxF32(running, outMax, outMax, fftSize_);
        }
    }
}

void SweepFft::convertUnits(float* values) const {
    const bool millivolts = scale_ == scaleMillivolts;
    switch (videoUnits_) {
        case videoLog:
            if (!millivolts) return;
            dspAddConstF32(values, millivoltDecibels, values, fftSize_);
            dspMulConstF32(values, nepersPerAmplitudeDecibel, values, fftSize_);
            dspExpF32(values, values, fftSize_);
            return;
        case videoVoltage:
            if (!millivolts) dspSqrF32(values, values, fftSize_);
            break;
        default:
            if (millivolts) dspSqrtF32(values, values, fftSize_);
    }
    if (millivolts) {
        dspMulConstF32(values, millivoltFactor, values, fftSize_);
    } else {
        powerToDecibels(values, fftSize_);
    }
}

void SweepFft::transformStep(const cf32* samples, float* outMin, float* outMax) {
    if (videoUnits_ == videoSample) {
        oneSpectrum(samples, outMin);
        dspCopy32(outMin, outMax, fftSize_);
    } else if (detector_ == detectorAverage) {
        averageAll(samples, outMin, outMax);
    } else {
        holdExtremes(samples, outMin, outMax);
    }
    convertUnits(outMin);
    convertUnits(outMax);
}

}  // namespace hxr
