#include "vsg/pattern_words.h"

#include <algorithm>
#include <cmath>

#include "dsp/vector.h"

namespace hxr {
namespace {

using Sample = std::complex<float>;

double measuredOr(double ideal, float value) { return std::isnan(value) ? ideal : double{value}; }

/// Undoes the modulator's errors, samples being single precision at each step: I' = a I, Q' = b I + d Q.
class Correction {
  public:
    Correction(const ModulatorErrors& errors, float scale)
        : a_(static_cast<float>(1.0 / errors.gain)),
          b_(static_cast<float>(std::tan(-errors.phase) * -a_)),
          d_(static_cast<float>(1.0 / std::cos(-errors.phase))),
          scale_(scale),
          offsetI_(errors.offsetI * measuredScale),
          offsetQ_(errors.offsetQ * measuredScale) {}

    Sample operator()(const Sample& sample) const {
        const float i = sample.real() * a_ * scale_;
        const float q = (sample.real() * b_ + sample.imag() * d_) * scale_;
        return {static_cast<float>(i + offsetI_), static_cast<float>(q + offsetQ_)};
    }

  private:
    static constexpr double measuredScale = 0.5;

    float a_, b_, d_, scale_;
    double offsetI_, offsetQ_;
};

/// The 14 bits that the converters take of 16.
std::uint32_t railField(std::int16_t value) {
    constexpr int unusedBits = 2;
    return static_cast<std::uint16_t>(value >> unusedBits);
}

}  // namespace

ModulatorErrors ModulatorErrors::measuredAt(const HXRCalData& image, std::size_t k) {
    return {.gain = measuredOr(1.0, image.vsgGain[k]),
            .phase = measuredOr(0.0, image.vsgPhase[k]),
            .offsetI = measuredOr(0.0, image.vsgOffsetI[k]),
            .offsetQ = measuredOr(0.0, image.vsgOffsetQ[k])};
}

std::vector<std::uint32_t> patternWords(std::span<const Sample> pattern, const ModulatorErrors& errors,
                                        float scale, RailOrder order) {
    constexpr int fullScaleOf16Bits = -15;
    std::vector<Sample> corrected(pattern.size());
    std::ranges::transform(pattern, corrected.begin(), Correction(errors, scale));

    std::vector<std::int16_t> rails(2 * pattern.size());
    dspF32ToI16(reinterpret_cast<const float*>(corrected.data()), rails.data(),
                static_cast<int>(rails.size()), dspRoundToNearest, fullScaleOf16Bits);

    std::vector<std::uint32_t> words(pattern.size());
    for (std::size_t n = 0; n < words.size(); ++n) {
        const std::uint32_t i = railField(rails[2 * n]), q = railField(rails[2 * n + 1]);
        words[n] = order == RailOrder::iFirst ? q << 16 | i : i << 16 | q;
    }
    return words;
}

}  // namespace hxr
