#include "sweep/sweep_fft.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

#include "sweep/window.h"

namespace hxr {
namespace {

using Spectrum = std::vector<double>;

constexpr double pi = std::numbers::pi;
constexpr int full = 64;

SweepPlan planOf(int fftSize, int windowLength, std::uint32_t ffts, double vbwRatio) {
    SweepPlan plan;
    plan.fftSize = fftSize;
    plan.windowLength = windowLength;
    plan.padLength = fftSize - windowLength;
    plan.fftsPerStep = ffts;
    plan.vbwRatio = vbwRatio;
    return plan;
}

/// The used bins of a step, in 64ths.
SweepStep stepOf(int fftSize, int first64, int count64, float gainDb = 0, bool inverted = false) {
    return {.step = 20,
            .loFrequency = 0,
            .gainDb = gainDb,
            .firstBin = fftSize / full * first64,
            .binCount = fftSize / full * count64,
            .inverted = inverted,
            .taps = {}};
}

/// Powers of the windowed samples' transform, lowest frequency first, as its formula says.
Spectrum powersOf(const std::vector<cf32>& samples, std::size_t start, const SweepPlan& plan, int window) {
    std::vector<double> weights(static_cast<std::size_t>(plan.windowLength));
    fillWindow(window, weights);
    double sum = 0;
    for (const double weight : weights) sum += weight;
    const int n = plan.fftSize;
    Spectrum powers;
    for (int bin = -n / 2; bin < n / 2; ++bin) {
        std::complex<double> total = 0;
        for (std::size_t i = 0; i < weights.size(); ++i) {
            const cf32& sample = samples[start + i];
            total += std::complex<double>(sample.re, sample.im) * weights[i] *
                     std::polar(1.0, -2 * pi * bin * static_cast<double>(i) / n);
        }
        powers.push_back(std::norm(total / sum));
    }
    return powers;
}

double decibels(double power) { return 10 * std::log10(power); }

/// A step worked out in double precision, from the settings' meaning.
Spectrum expectedTrace(const std::vector<cf32>& samples, const SweepPlan& plan, const SweepSettings& settings,
                       const SweepStep& step) {
    const auto inDomain = [&](double power) {
        if (settings.sweepVideoUnits == videoLog) return decibels(power);
        return settings.sweepVideoUnits == videoVoltage ? std::sqrt(power) : power;
    };
    const auto powerOf = [&](double value) {
        if (settings.sweepVideoUnits == videoLog) return std::pow(10, value / 10);
        return settings.sweepVideoUnits == videoVoltage ? value * value : value;
    };
    const bool oneFft = settings.sweepVideoUnits == videoSample;
    const std::size_t ffts = oneFft ? 1 : plan.fftsPerStep;
    const auto bins = static_cast<std::size_t>(plan.fftSize);

    std::vector<Spectrum> spectra;
    for (std::size_t i = 0; i < ffts; ++i) {
        spectra.push_back(powersOf(samples, i * bins / 4, plan, static_cast<int>(settings.sweepWindow)));
        for (double& value : spectra.back()) value = inDomain(value);
    }

    const auto mostAveraged = static_cast<std::size_t>(std::ceil(1 / plan.vbwRatio));
    Spectrum trace;
    for (std::size_t bin = 0; bin < bins; ++bin) {
        double value = spectra[0][bin];
        double mean = 0;
        double highest = -1e300;
        for (std::size_t i = 0; i < ffts; ++i) {
            const double weight = std::max(1.0 / static_cast<double>(i + 1), plan.vbwRatio);
            mean += (spectra[i][bin] - mean) * weight;
            if (i + 1 >= mostAveraged) highest = std::max(highest, mean);
        }
        if (!oneFft) value = highest;
        if (!oneFft && settings.sweepDetector == detectorAverage) {
            value = 0;
            for (const Spectrum& spectrum : spectra) value += spectrum[bin] / static_cast<double>(ffts);
        }
        const double power = powerOf(value);
        if (settings.sweepScale == scaleMillivolts) {
            trace.push_back(std::sqrt(50'000 * power) * std::pow(10, step.gainDb / 20));
        } else {
            trace.push_back(decibels(power) + (settings.sweepScale == scaleDbm ? step.gainDb : 0.0));
        }
    }
    if (step.inverted) std::reverse(trace.begin(), trace.end());
    return {trace.begin() + step.firstBin, trace.begin() + step.firstBin + step.binCount};
}

/// A tone beside noise, well above what single precision can tell.
std::vector<cf32> noisyTone(std::size_t count) {
    std::mt19937 generator(7);
    std::normal_distribution<float> noise(0, 0.05F);
    std::vector<cf32> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        const double angle = 2 * pi * 0.2017 * static_cast<double>(i);
        samples[i] = {static_cast<float>(0.4 * std::cos(angle)) + noise(generator),
                      static_cast<float>(0.4 * std::sin(angle)) + noise(generator)};
    }
    return samples;
}

TEST(SweepFft, AllUnitsDetectorsAndScalesAgreeWithDoublePrecision) {
    struct Size {
        int fftSize, windowLength;
        std::uint32_t ffts;
        double vbwRatio;
    };
    const auto samples = noisyTone(2048);
    for (const Size& size : {Size{64, 18, 1, 1.0}, Size{256, 188, 4, 0.25}, Size{256, 256, 8, 0.25},
                             Size{64, 50, 5, 0.3}, Size{64, 50, 5, 100.1 / 500.5}}) {
        const SweepPlan plan = planOf(size.fftSize, size.windowLength, size.ffts, size.vbwRatio);
        for (std::uint32_t variant = 0; variant < 4 * 3 * 3; ++variant) {
            SweepSettings settings;
            settings.sweepVideoUnits = variant % 4;
            settings.sweepDetector = variant / 4 % 3;
            settings.sweepScale = variant / 12;
            settings.sweepWindow = variant % 3;
            SweepFft fft(plan, settings);
            for (const bool inverted : {false, true}) {
                const SweepStep step =
                    stepOf(size.fftSize, inverted ? 37 : 7, inverted ? 10 : 50, -3.25F, inverted);
                std::vector<float> trace(static_cast<std::size_t>(step.binCount));
                fft.transformStep(step, samples.data(), trace.data());
                const Spectrum expected = expectedTrace(samples, plan, settings, step);
                for (std::size_t i = 0; i < trace.size(); ++i) {
                    const double tolerance =
                        settings.sweepScale == scaleMillivolts ? 1e-3 * expected[i] : 0.01;
                    ASSERT_NEAR(trace[i], expected[i], tolerance)
                        << "N " << size.fftSize << ", units " << settings.sweepVideoUnits << ", detector "
                        << settings.sweepDetector << ", scale " << settings.sweepScale << ", bin " << i;
                }
            }
        }
    }
}

TEST(SweepFft, FullScaleToneIsZeroDecibelsWhateverWindowAndSize) {
    for (const int fftSize : {64, 4096, 131072}) {
        for (std::uint32_t window = 0; window < 3; ++window) {
            SweepSettings settings;
            settings.sweepWindow = window;
            settings.sweepScale = scaleFullScale;
            SweepFft fft(planOf(fftSize, fftSize / 8 * 7, 1, 1.0), settings);
            std::vector<cf32> samples(static_cast<std::size_t>(fftSize));
            for (std::size_t i = 0; i < samples.size(); ++i)
                samples[i] = i % 2 == 0 ? cf32{1, 0} : cf32{-1, 0};  // at half the rate: the lowest bin
            const SweepStep step = stepOf(fftSize, 0, full, 17.0F);
            std::vector<float> trace(samples.size());
            fft.transformStep(step, samples.data(), trace.data());
            EXPECT_NEAR(trace[0], 0.0F, 2e-5F) << fftSize << ' ' << window;
        }
    }
}

TEST(SweepFft, NothingOfAStepReachesTheNext) {
    SweepSettings settings;
    const SweepPlan plan = planOf(256, 200, 6, 0.2);
    const SweepStep step = stepOf(256, 7, 50);
    const auto loud = noisyTone(2048);
    std::vector<cf32> quiet(2048);
    for (cf32& sample : quiet) sample = {1e-4F, 0};
    std::vector<float> fresh(200), after(200);
    SweepFft(plan, settings).transformStep(step, quiet.data(), fresh.data());
    SweepFft used(plan, settings);
    used.transformStep(step, loud.data(), after.data());
    used.transformStep(step, quiet.data(), after.data());
    EXPECT_EQ(after, fresh);
}

TEST(SweepFft, SilenceIsMinusInfinityDecibels) {
    SweepSettings settings;
    const std::vector<cf32> silence(64);
    std::vector<float> trace(50);
    SweepFft(planOf(64, 50, 1, 1.0), settings).transformStep(stepOf(64, 7, 50), silence.data(), trace.data());
    for (const float value : trace) EXPECT_EQ(value, -std::numeric_limits<float>::infinity());
}

}  // namespace
}  // namespace hxr
