// A sweep step's transform beside the same work written with FFTW (FFTW_MEASURE, out of place) and VOLK: window,
// transform, halves exchanged and cut to the used bins, power, logarithm, detector. Single precision, one thread each.
//
// The rival may do what is natural to it: its window is real and carries the transform's scale, its logarithm is to
// base 2, with errors of up to 1e-5 that ours doesn't have.

#include <fftw3.h>
#include <volk/volk.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <span>

#include "../dsp/side_by_side.h"
#include "cal/correction_lookup.h"
#include "dsp/instruction_set.h"
#include "sim/synthetic_image.h"
#include "sweep/sweep_fft.h"
#include "sweep/sweep_plan.h"
#include "sweep/window.h"

namespace {

using namespace hxr;

constexpr std::uint32_t detectorMaximum = 2;

std::size_t index(std::int32_t position) { return static_cast<std::size_t>(position); }

/// The step transform with FFTW and VOLK.
class Rival {
  public:
    Rival(const SweepPlan& plan, const SweepSettings& settings)
        : plan_(plan),
          settings_(settings),
          window_(platform::makeAlignedArray<float>(index(plan.fftSize))),
          current_(platform::makeAlignedArray<float>(index(plan.fftSize))),
          running_(platform::makeAlignedArray<float>(index(plan.fftSize))),
          in_(fftwf_alloc_complex(index(plan.fftSize))),
          out_(fftwf_alloc_complex(index(plan.fftSize))),
          transform_(fftwf_plan_dft_1d(plan.fftSize, in_, out_, FFTW_FORWARD, FFTW_MEASURE)) {
        const auto window = platform::makeAlignedArray<cf32>(index(plan.fftSize));
        buildSweepWindow(static_cast<int>(settings.sweepWindow), plan.padLength,
                         {window.get(), index(plan.fftSize)});
        for (std::int32_t i = 0; i < plan.fftSize; ++i)
            window_[index(i)] = window[index(i)].re / static_cast<float>(plan.fftSize);
    }
    ~Rival() {
        fftwf_destroy_plan(transform_);
        fftwf_free(in_);
        fftwf_free(out_);
    }
    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;

    void transformStep(const SweepStep& step, const cf32* samples, float* trace) {
        const auto bins = static_cast<unsigned>(step.binCount);
        const auto ffts = static_cast<std::int32_t>(plan_.fftsPerStep);
        if (settings_.sweepDetector == detectorAverage) {
            std::fill_n(trace, bins, 0.0F);
            for (std::int32_t i = 0; i < ffts; ++i) {
                oneSpectrum(step, samples + std::ptrdiff_t{i} * plan_.hop(), current_.get());
                volk_32f_x2_add_32f(trace, trace, current_.get(), bins);
            }
            volk_32f_s32f_multiply_32f(trace, trace, 1.0F / static_cast<float>(ffts), bins);
        } else {
            holdMaximum(step, samples, trace);
        }
        if (settings_.sweepVideoUnits == videoPower) toDecibels(trace, bins);
    }

  private:
    static void toDecibels(float* values, unsigned n) {
        constexpr float decibelsPerOctave = 3.01029996F;  // of a power
        volk_32f_log2_32f(values, values, n);
        volk_32f_s32f_multiply_32f(values, values, decibelsPerOctave, n);
    }

    void oneSpectrum(const SweepStep& step, const cf32* samples, float* out) const {
        const auto length = static_cast<unsigned>(plan_.windowLength);
        auto* const in = reinterpret_cast<lv_32fc_t*>(in_);
        volk_32fc_32f_multiply_32fc(in, reinterpret_cast<const lv_32fc_t*>(samples), window_.get(), length);
        std::fill_n(in + length, plan_.padLength, lv_32fc_t(0));
        fftwf_execute(transform_);
        const auto* const result = reinterpret_cast<const lv_32fc_t*>(out_);
        const std::int32_t half = plan_.fftSize / 2;
        const std::int32_t below = half - step.firstBin;
        volk_32fc_magnitude_squared_32f(out, result + half + step.firstBin, static_cast<unsigned>(below));
        volk_32fc_magnitude_squared_32f(out + below, result, static_cast<unsigned>(step.binCount - below));
        if (settings_.sweepVideoUnits == videoLog) toDecibels(out, static_cast<unsigned>(step.binCount));
    }

    void runningAverage(double oldWeight, double newWeight, unsigned bins) {
        volk_32f_s32f_multiply_32f(running_.get(), running_.get(), static_cast<float>(oldWeight), bins);
        volk_32f_s32f_multiply_32f(current_.get(), current_.get(), static_cast<float>(newWeight), bins);
        volk_32f_x2_add_32f(running_.get(), running_.get(), current_.get(), bins);
    }

    void holdMaximum(const SweepStep& step, const cf32* samples, float* trace) {
        const auto bins = static_cast<unsigned>(step.binCount);
        std::fill_n(running_.get(), bins, 0.0F);
        std::fill_n(trace, bins, -1e30F);
        double weight = 1.0, further = 2.0;
        for (std::int32_t i = 0; i < static_cast<std::int32_t>(plan_.fftsPerStep); ++i) {
            oneSpectrum(step, samples + std::ptrdiff_t{i} * plan_.hop(), current_.get());
            if (weight > plan_.vbwRatio) {
                runningAverage(1.0 - weight, weight, bins);
                weight = 1.0 / further++;
            } else {
                runningAverage(1.0 - plan_.vbwRatio, plan_.vbwRatio, bins);
                volk_32f_x2_max_32f(trace, trace, running_.get(), bins);
            }
        }
        // Where rounding has let all of them into the mean.
        if (trace[0] == -1e30F) std::copy_n(running_.get(), bins, trace);
    }

    const SweepPlan& plan_;
    const SweepSettings& settings_;
    platform::AlignedArray<float> window_, current_, running_;
    fftwf_complex* in_;
    fftwf_complex* out_;
    fftwf_plan transform_;
};

struct Case {
    const char* what;
    std::uint32_t videoUnits, detector;
    bool many;
};

constexpr Case cases[] = {
    {"power, one", videoPower, detectorMaximum, false},
    {"log, one", videoLog, detectorMaximum, false},
    {"power, average of", videoPower, detectorAverage, true},
    {"log, average of", videoLog, detectorAverage, true},
    {"power, maximum of", videoPower, detectorMaximum, true},
    {"log, maximum of", videoLog, detectorMaximum, true},
};

void measure(double rbw, const Case& c) {
    constexpr double leastVbw = 100;
    SweepSettings settings;
    settings.sweepCenter = 1e9;
    settings.sweepSpan = 1e6;
    settings.sweepRBW = rbw;
    settings.sweepVBW = c.many ? leastVbw : rbw;
    settings.sweepTime = 1e-6;
    settings.sweepVideoUnits = c.videoUnits;
    settings.sweepDetector = c.detector;
    if (c.many && rbw == leastVbw) return;
    LoContext synthesizers;
    CorrectionState corrections;
    const auto image = sim::makeSyntheticImage({});
    corrections.image = platform::makeAligned<HXRCalData>();
    std::memcpy(corrections.image.get(), image.data(), image.size());
    updateTemperature(corrections, 31.0F);
    const SweepPlan plan = planSweep(settings, {synthesizers, corrections, 0}).plan;
    const SweepStep& step = plan.steps.front();
    SweepFft ours(plan, settings);
    Rival theirs(plan, settings);

    const auto samples = platform::makeAlignedArray<cf32>(index(plan.samplesPerStep()));
    std::mt19937 engine(1);
    std::normal_distribution<float> value;
    for (std::int32_t i = 0; i < plan.samplesPerStep(); ++i)
        samples[index(i)] = {value(engine), value(engine)};
    const auto trace = platform::makeAlignedArray<float>(index(step.binCount));
    const auto theirTrace = platform::makeAlignedArray<float>(index(step.binCount));

    const int turns = plan.samplesPerStep() < 100'000 ? 60 : 15;
    const bench::Times times =
        bench::sideBySide([&] { ours.transformStep(step, samples.get(), trace.get()); },
                          [&] { theirs.transformStep(step, samples.get(), theirTrace.get()); }, turns);
    // The noise's levels without our correction.
    double difference = 0;
    for (std::int32_t i = 0; i < step.binCount; ++i) {
        const double both = double{trace[index(i)]} - double{step.gainDb} - double{theirTrace[index(i)]};
        difference += both * both;
    }
    std::printf("%8d %-18s %7u %12.3f %12.3f %6.2f %12.2e\n", plan.fftSize, c.what, plan.fftsPerStep,
                1e6 * times.ours / plan.fftsPerStep, 1e6 * times.theirs / plan.fftsPerStep, times.ratio(),
                std::sqrt(difference / step.binCount));
    std::fflush(stdout);
}

}  // namespace

/// Argument: an RBW in Hz; 10 MHz down to 100 Hz unless given.
int main(int count, char** arguments) {
    dspInitialise();
    std::printf("%8s %-18s %7s %12s %12s %6s %12s\n", "points", "step", "FFTs", "ours us/FFT", "FFTW, VOLK",
                "ratio", "dB between");
    constexpr double bandwidths[] = {1e7, 1e6, 1e5, 1e4, 1e3, 100};
    const double given = count > 1 ? std::atof(arguments[1]) : 0;
    for (const double rbw : count > 1 ? std::span(&given, 1) : std::span(bandwidths)) {
        for (const Case& c : cases) measure(rbw, c);
    }
}
