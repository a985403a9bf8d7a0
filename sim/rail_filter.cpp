#include "sim/rail_filter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace hxr::sim {
namespace {

constexpr double pi = std::numbers::pi;
constexpr std::size_t bins = 32;
constexpr std::size_t transform = 2 * bins;
constexpr std::size_t middle = railTapCount / 2;

using Complex = std::complex<double>;
using Spectrum = std::array<Complex, bins + 1>;

Complex turnOf(std::size_t step) {
    static const auto table = [] {
        std::array<Complex, transform> values;
        for (std::size_t i = 0; i < transform; ++i)
            values[i] = std::polar(1.0, 2.0 * pi * static_cast<double>(i) / transform);
        return values;
    }();
    return table[step % transform];
}

/// A low-pass of 56.25 MHz with a gain of 1 at DC.
const Spectrum& lowPass() {
    static const Spectrum spectrum = [] {
        constexpr double turnsPerTap = 2.0 * static_cast<double>(0.45f);
        std::array<double, railTapCount> taps;
        double sum = 0.0;
        for (std::size_t n = 0; n < railTapCount; ++n) {
            const double x = pi * turnsPerTap * (static_cast<double>(n) - static_cast<double>(middle));
            taps[n] = n == middle ? 1.0 : std::sin(x) / x;
            sum += taps[n];
        }
        Spectrum result{};
        for (std::size_t b = 0; b <= bins; ++b) {
            for (std::size_t n = 0; n < railTapCount; ++n)
                result[b] += taps[n] / sum * std::conj(turnOf(b * n));
        }
        return result;
    }();
    return spectrum;
}

/// The real sequence behind a half spectrum, under the window.
std::array<double, railTapCount> windowed(const Spectrum& spectrum) {
    std::array<double, railTapCount> taps;
    for (std::size_t n = 0; n < railTapCount; ++n) {
        double sum = spectrum[0].real() + spectrum[bins].real() * (n % 2 == 0 ? 1.0 : -1.0);
        for (std::size_t b = 1; b < bins; ++b) {
            const Complex turn = turnOf(b * n);
            sum += 2.0 * (spectrum[b].real() * turn.real() - spectrum[b].imag() * turn.imag());
        }
        const double angle = 2.0 * pi * static_cast<double>(n) / (railTapCount - 1);
        taps[n] = sum / transform * (0.54 - 0.46 * std::cos(angle));
    }
    return taps;
}

}  // namespace

std::array<RailGains, 2> gainsAt(const RailTaps& first, const RailTaps& second, double hz) {
    const double angle = -2.0 * pi * hz / frontEndRateHz;
    const Complex step = std::polar(1.0, angle);
    Complex turn = std::polar(1.0, -angle * static_cast<double>(middle));
    std::array<double, 8> sums{};
    for (std::size_t n = 0; n < railTapCount; ++n) {
        const double re = turn.real();
        const double im = turn.imag();
        sums[0] += first.i[n] * re;
        sums[1] += first.i[n] * im;
        sums[2] += first.q[n] * re;
        sums[3] += first.q[n] * im;
        sums[4] += second.i[n] * re;
        sums[5] += second.i[n] * im;
        sums[6] += second.q[n] * re;
        sums[7] += second.q[n] * im;
        turn = {re * step.real() - im * step.imag(), re * step.imag() + im * step.real()};
    }
    return {{{{sums[0], sums[1]}, {sums[2], sums[3]}}, {{sums[4], sums[5]}, {sums[6], sums[7]}}}};
}

RailGains gainsAt(const RailTaps& taps, double hz) { return gainsAt(taps, taps, hz)[0]; }

RailTaps evenedBy(const ResponsePoints& points) {
    Spectrum i = lowPass();
    Spectrum q = lowPass();
    const auto level = [&](std::size_t p) { return std::pow(10.0, points.levelDb[p] / 20.0); };

    // At DC there is no point: the ratio goes on from the first two, the level stays.
    const double ratioAtDc = std::sqrt(2.0 * points.ratio[0] - points.ratio[1]);
    i[0] *= level(0) / ratioAtDc;
    q[0] *= level(0) * ratioAtDc;
    for (std::size_t b = 1; b < bins; ++b) {
        const std::size_t p = std::min(b, layout::responsePoints) - 1;
        const double ratio = std::sqrt(points.ratio[p]);
        const Complex skew = std::polar(1.0, 0.5 * points.phase[p]);
        i[b] *= level(p) / ratio * std::conj(skew);
        q[b] *= level(p) * ratio * skew;
    }
    return {windowed(i), windowed(q)};
}

}  // namespace hxr::sim
