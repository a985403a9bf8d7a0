#include "sim/resampler.h"

#include <algorithm>
#include <cmath>

#include "sim/low_pass.h"
#include "sim/phase.h"

namespace hxr::sim {
namespace {

constexpr std::size_t phases = 256;
/// Half the filter's length in samples of the lower rate.
constexpr double halfLength = 32.0;
/// Middle of a slope that ends at half the lower rate.
constexpr double cutoff = 0.5 - 0.5 * lowPassSlope / halfLength;
/// Numbers of taps are multiples of this, which vectors divide without a rest.
constexpr std::size_t lanes = 8;

}  // namespace

Resampler::Resampler(double rateHz) : step_(rateHz / captureRateHz) {
    const double stretch = std::max(1.0, step_);
    const double half = halfLength * stretch;
    taps_ = (2 * static_cast<std::size_t>(std::ceil(half)) + lanes - 1) / lanes * lanes;
    phases_.resize((phases + 1) * taps_);
    for (std::size_t phase = 0; phase <= phases; ++phase) {
        const double fraction = static_cast<double>(phase) / phases;
        const std::span<float> row(phases_.data() + phase * taps_, taps_);
        std::vector<double> response(taps_);
        double sum = 0.0;
        for (std::size_t k = 0; k < taps_; ++k) {
            const double time = static_cast<double>(k) - static_cast<double>(tapsAhead()) - fraction;
            response[k] = kaiserWindow(time / half) * idealLowPass(time, cutoff / stretch);
            sum += response[k];
        }
        std::transform(response.begin(), response.end(), row.begin(),
                       [&](double tap) { return static_cast<float>(tap / sum); });
    }
}

std::size_t Resampler::needed(std::size_t count) const {
    return static_cast<std::size_t>(static_cast<double>(count) * step_) + taps_ + 1;
}

void Resampler::resample(Baseband out, const Baseband& in, double fraction) const {
    const std::size_t taps = taps_ / lanes * lanes;
    for (std::size_t n = 0; n < out.size(); ++n) {
        const double place = fraction + static_cast<double>(n) * step_;
        const auto first = static_cast<std::size_t>(place);
        const double phase = (place - static_cast<double>(first)) * phases;
        const auto row = std::min(static_cast<std::size_t>(phase), phases - 1);
        const auto between = static_cast<float>(phase - static_cast<double>(row));
        const float* const here = phases_.data() + row * taps_;
        const float* const next = here + taps_;
        const float* const inI = in.i.data() + first;
        const float* const inQ = in.q.data() + first;
        float i = 0.0f, q = 0.0f;
        for (std::size_t k = 0; k < taps; ++k) {
            const float tap = here[k] + between * (next[k] - here[k]);
            i += tap * inI[k];
            q += tap * inQ[k];
        }
        out.i[n] = i;
        out.q[n] = q;
    }
}

}  // namespace hxr::sim
