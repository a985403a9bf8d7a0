#include "sim/sources.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <numbers>

#include "sim/rotation.h"

namespace hxr::sim {
namespace {

/// A turn in equal parts for looking up points of the unit circle, good to -130 dB between them.
class Circle {
  public:
    Circle() {
        for (std::size_t i = 0; i < points_.size(); ++i) {
            const std::complex<double> point = onCircle(static_cast<Turns>(i) << stepBits);
            points_[i] = {static_cast<float>(point.real()), static_cast<float>(point.imag())};
        }
    }

    std::complex<float> at(Turns phase) const {
        constexpr int fractionBits = 24;
        constexpr float fractionUnit = 1.0f / (1 << fractionBits);
        const auto index = static_cast<std::size_t>(phase >> stepBits);
        const auto rest =
            static_cast<std::int32_t>(phase >> (stepBits - fractionBits) & ((1 << fractionBits) - 1));
        const float fraction = static_cast<float>(rest) * fractionUnit;
        return points_[index] + fraction * (points_[index + 1] - points_[index]);
    }

  private:
    static constexpr int indexBits = 12;
    static constexpr int stepBits = 64 - indexBits;
    std::array<std::complex<float>, (1 << indexBits) + 1> points_;
};

const Circle& circle() {
    static const Circle instance;
    return instance;
}

/// Values of a Gaussian variable at equal steps of probability, of variance 1.
class GaussianValues {
  public:
    static constexpr unsigned indexBits = 12;

    GaussianValues() {
        double power = 0.0;
        for (std::size_t i = 0; i < values_.size(); ++i) {
            const double probability = (static_cast<double>(i) + 0.5) / static_cast<double>(values_.size());
            const double value = quantile(probability);
            values_[i] = static_cast<float>(value);
            power += value * value;
        }
        const double scale = std::sqrt(static_cast<double>(values_.size()) / power);
        for (float& value : values_) value = static_cast<float>(value * scale);
    }

    /// The value that 12 random bits choose.
    float at(std::uint64_t bits) const { return values_[bits & (values_.size() - 1)]; }

  private:
    static double quantile(double probability) {
        double low = -8.0, high = 8.0;
        for (int step = 0; step < 50; ++step) {
            const double middle = 0.5 * (low + high);
            (0.5 * std::erfc(-middle / std::numbers::sqrt2) < probability ? low : high) = middle;
        }
        return low;
    }

    std::array<float, 1 << indexBits> values_;
};

/// Spreads a counter over 64 bits that look random.
constexpr std::uint64_t scattered(std::uint64_t counter) {
    constexpr std::uint64_t first = 0xBF58476D1CE4E5B9;
    constexpr std::uint64_t second = 0x94D049BB133111EB;
    counter = (counter ^ counter >> 30) * first;
    counter = (counter ^ counter >> 27) * second;
    return counter ^ counter >> 31;
}

/// Where a carrier stands at a stretch's first sample, seen from the stretch's centre.
struct Carrier {
    Turns phase;
    Turns perSample;

    Carrier(Turns airPerSample, const Stretch& stretch)
        : perSample(airPerSample - turnsPerSample(stretch.centreHz)) {
        phase = phaseAt(perSample, stretch.firstSample);
    }
};

}  // namespace

double amplitudeOf(double dbm) { return std::pow(10.0, dbm / 20.0); }

Tone::Tone(double hz, double dbm) : hz_(hz), perSample_(turnsPerSample(hz)), amplitude_(amplitudeOf(dbm)) {}

void Tone::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    const Carrier carrier(perSample_, stretch);
    addRotation(samples, {carrier.phase, carrier.perSample, amplitude_ * gain});
}

AmTone::AmTone(double hz, double dbm, double modulationHz, double depth)
    : hz_(hz),
      modulationHz_(modulationHz),
      perSample_(turnsPerSample(hz)),
      modulationPerSample_(turnsPerSample(modulationHz)),
      amplitude_(amplitudeOf(dbm)),
      depth_(depth) {}

// 1 + depth * cos is a carrier with a line on each side.
void AmTone::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    const std::complex<double> carrierGain = amplitude_ * gain;
    const std::complex<double> lineGain = 0.5 * depth_ * carrierGain;
    const Carrier carrier(perSample_, stretch);
    const Carrier upper(perSample_ + modulationPerSample_, stretch);
    const Carrier lower(perSample_ - modulationPerSample_, stretch);
    addRotation(samples, {carrier.phase, carrier.perSample, carrierGain});
    addRotation(samples, {upper.phase, upper.perSample, lineGain});
    addRotation(samples, {lower.phase, lower.perSample, lineGain});
}

FmTone::FmTone(double hz, double dbm, double modulationHz, double deviationHz)
    : hz_(hz),
      modulationHz_(modulationHz),
      deviationHz_(deviationHz),
      perSample_(turnsPerSample(hz)),
      modulationPerSample_(turnsPerSample(modulationHz)),
      amplitude_(amplitudeOf(dbm)) {}

void FmTone::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    constexpr int phaseBits = 32;
    const Circle& points = circle();
    const Carrier carrier(perSample_, stretch);
    const double swing =
        std::ldexp(deviationHz_ / (modulationHz_ * 2.0 * std::numbers::pi), phaseBits);  // in turns
    const auto factor = std::complex<float>(amplitude_ * gain);
    Turns phase = carrier.phase;
    Turns modulation = phaseAt(modulationPerSample_, stretch.firstSample);
    for (std::size_t n = 0; n < samples.size(); ++n) {
        const auto swung =
            static_cast<std::int64_t>(swing * static_cast<double>(points.at(modulation).imag()));
        const std::complex<float> point = points.at(phase + (static_cast<Turns>(swung) << (64 - phaseBits)));
        samples.i[n] += factor.real() * point.real() - factor.imag() * point.imag();
        samples.q[n] += factor.real() * point.imag() + factor.imag() * point.real();
        phase += carrier.perSample;
        modulation += modulationPerSample_;
    }
}

PulsedTone::PulsedTone(double hz, double dbm, double widthSeconds, double periodSeconds)
    : hz_(hz),
      perSample_(turnsPerSample(hz)),
      amplitude_(amplitudeOf(dbm)),
      width_(std::max<std::int64_t>(1, std::llround(widthSeconds * captureRateHz))),
      period_(std::max(width_, static_cast<std::int64_t>(std::llround(periodSeconds * captureRateHz)))) {}

double PulsedTone::reachHz() const { return captureRateHz / static_cast<double>(width_); }

void PulsedTone::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    const Carrier carrier(perSample_, stretch);
    const auto count = static_cast<std::int64_t>(samples.size());
    // Sample 0 of the stretch lies so far behind the beginning of a pulse.
    const std::int64_t behind = stretch.firstSample % period_;
    for (std::int64_t pulse = -behind; pulse < count; pulse += period_) {
        const std::int64_t first = std::max<std::int64_t>(pulse, 0);
        const std::int64_t end = std::min(pulse + width_, count);
        if (end <= first) continue;
        addRotation(
            samples.part(static_cast<std::size_t>(first), static_cast<std::size_t>(end - first)),
            {carrier.phase + phaseAt(carrier.perSample, first), carrier.perSample, amplitude_ * gain});
    }
}

WhiteNoise::WhiteNoise(double dbmPerHz)
    : amplitude_(amplitudeOf(dbmPerHz + 10.0 * std::log10(captureRateHz))) {}

void WhiteNoise::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    // There is nothing below 0 Hz that a real signal hasn't above.
    if (stretch.centreHz < 0.0) return;
    static const GaussianValues values;
    constexpr unsigned bits = GaussianValues::indexBits;
    constexpr std::uint64_t stride = 0x9E3779B97F4A7C15;
    // Two values are added for each rail, and each rail has half the power.
    const auto factor = static_cast<float>(0.5 * amplitude_ * std::abs(gain));
    std::uint64_t counter = scattered(std::bit_cast<std::uint64_t>(stretch.centreHz)) +
                            static_cast<std::uint64_t>(stretch.firstSample) * stride;
    for (std::size_t n = 0; n < samples.size(); ++n, counter += stride) {
        const std::uint64_t random = scattered(counter);
        samples.i[n] += factor * (values.at(random) + values.at(random >> bits));
        samples.q[n] += factor * (values.at(random >> 2 * bits) + values.at(random >> 3 * bits));
    }
}

}  // namespace hxr::sim
