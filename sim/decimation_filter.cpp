#include "sim/decimation_filter.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <numbers>

#include "sim/phase.h"
#include "sim/rail_filter.h"

namespace hxr::sim {
namespace {

/// The filter's clock, in rates that go out.
constexpr double inputRates = 5.0;

double gainOfCaptures(double hz) {
    constexpr struct {
        double rate;
        double db;
    } corners[] = {{0.3907, 0.0}, {0.40, -0.03}, {0.45, -4.4}, {0.50, -30.7}};
    const double rate = std::abs(hz) / captureRateHz;
    if (rate <= corners[0].rate) return 1.0;
    for (std::size_t i = 1; i < std::size(corners); ++i) {
        const auto& from = corners[i - 1];
        const auto& to = corners[i];
        if (rate > to.rate) continue;
        const double db = from.db + (to.db - from.db) * (rate - from.rate) / (to.rate - from.rate);
        return std::pow(10.0, db / 20.0);
    }
    return 0.0;
}

}  // namespace

DecimationFilter DecimationFilter::loaded(const RegisterFile& registers, std::size_t factor) {
    constexpr std::uint16_t firstTap = 896;
    constexpr std::uint16_t loadedTaps = 95;
    constexpr double fullScale = 1 << 19;
    DecimationFilter filter;
    filter.factor_ = factor;
    for (std::uint16_t i = 0; i < loadedTaps; ++i) {
        const std::uint32_t word = registers.read(static_cast<std::uint16_t>(firstTap + i)).value_or(0);
        filter.taps_.push_back(static_cast<std::int32_t>(word) / fullScale);
    }
    return filter;
}

double DecimationFilter::reachHz() const {
    const double outputHz = captureRateHz / static_cast<double>(factor_);
    return isLoaded() ? 0.5 * std::min(inputRates * outputHz, frontEndRateHz) : 0.5 * outputHz;
}

double DecimationFilter::gainAt(double hz) const {
    if (!isLoaded()) return gainOfCaptures(hz);
    if (std::abs(hz) >= reachHz()) return 0.0;
    // The cosines of the multiples of the angle follow from each other.
    const double inputHz = inputRates * captureRateHz / static_cast<double>(factor_);
    const double twice = 2.0 * std::cos(2.0 * std::numbers::pi * hz / inputHz);
    double before = 1.0, cosine = 0.5 * twice, sum = taps_.back();
    for (std::size_t i = taps_.size() - 1; i-- > 0;) {
        sum += 2.0 * taps_[i] * cosine;
        const double next = twice * cosine - before;
        before = cosine;
        cosine = next;
    }
    return sum;
}

}  // namespace hxr::sim
