#include "sim/placement.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "sim/low_pass.h"

namespace hxr::sim {
namespace {

constexpr double halfStretchHz = captureRateHz / 2;

/// The cutting filter reaches over so many samples to either side. That makes its slope 5.2 MHz wide, which
/// fits between the stretch's edge and the 39 MHz in its middle that a capture is used for.
constexpr std::size_t cutHalf = 24;
constexpr double cutSlopeHz = lowPassSlope / cutHalf * captureRateHz;
using CutTaps = std::array<float, 2 * cutHalf + 1>;

/// @param halfHz  half the width that stays, to the middle of the slopes
CutTaps cutTaps(double halfHz) {
    static const auto window = [] {
        std::array<double, cutHalf + 1> values;
        for (std::size_t k = 0; k <= cutHalf; ++k) values[k] = kaiserWindow(static_cast<double>(k) / cutHalf);
        return values;
    }();
    CutTaps taps;
    for (std::size_t k = 0; k <= cutHalf; ++k) {
        const double tap = window[k] * idealLowPass(static_cast<double>(k), halfHz / captureRateHz);
        taps[cutHalf + k] = taps[cutHalf - k] = static_cast<float>(tap);
    }
    return taps;
}

/// out[n] = sum of taps[k] * in[n + k]
void filter(std::span<float> out, const float* in, const CutTaps& taps) {
    // Short pieces stay in the processor's registers over all taps.
    constexpr std::size_t piece = 32;
    for (std::size_t first = 0; first < out.size(); first += piece) {
        const std::size_t count = std::min(piece, out.size() - first);
        std::array<float, piece> sums{};
        for (std::size_t k = 0; k < taps.size(); ++k) {
            if (count == piece) {
                for (std::size_t n = 0; n < piece; ++n) sums[n] += taps[k] * in[first + k + n];
            } else {
                for (std::size_t n = 0; n < count; ++n) sums[n] += taps[k] * in[first + k + n];
            }
        }
        std::copy_n(sums.begin(), count, out.begin() + static_cast<std::ptrdiff_t>(first));
    }
}

}  // namespace

Placement::Placement(double offsetHz, double reachHz) : offsetHz_(offsetHz) {
    // Two middles that are meant to be the same may have been rounded differently.
    constexpr double toleranceHz = 1.0;
    const double distance = std::abs(offsetHz);
    if (distance >= halfStretchHz + reachHz)
        part_ = Part::none;
    else
        part_ = distance + reachHz > halfStretchHz + toleranceHz ? Part::cut : Part::whole;
}

std::size_t Placement::margin() const { return part_ == Part::cut ? cutHalf : 0; }

void Placement::add(Baseband out, Baseband band, const Rotation& turn) const {
    if (part_ == Part::none) return;
    if (part_ == Part::whole) return addRotated(out, band, turn);

    // Of the band, that stays which lies between its own end away from the cut and the stretch's edge, the
    // slope being inside the edge. The filter passes it once it has been turned to its middle.
    const double edgeHz = halfStretchHz - 0.5 * cutSlopeHz - std::abs(offsetHz_);
    const double middleHz = std::copysign(0.5 * (halfStretchHz - edgeHz), -offsetHz_);
    const double halfHz = 0.5 * (edgeHz + halfStretchHz);
    if (halfHz <= 0.0) return;
    const Turns aside = turnsPerSample(-middleHz);
    rotate(band, {phaseAt(aside, -static_cast<std::int64_t>(cutHalf)), aside});

    const CutTaps taps = cutTaps(halfHz);
    std::vector<float> i(out.size()), q(out.size());
    filter(i, band.i.data(), taps);
    filter(q, band.q.data(), taps);
    addRotated(out, {i, q}, {turn.phase, turn.perSample - aside, turn.amplitude});
}

}  // namespace hxr::sim
