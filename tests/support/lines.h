#pragma once

#include <cmath>
#include <complex>
#include <numbers>
#include <span>
#include <vector>

namespace hxr::test {

using Samples = std::vector<std::complex<double>>;

/// Amplitude and phase of a line, through a window whose side lobes are below -90 dB.
inline std::complex<double> lineAt(std::span<const std::complex<double>> samples, double hz,
                                   double sampleRate = 50e6) {
    constexpr double turn = 2.0 * std::numbers::pi;
    std::complex<double> sum = 0.0;
    double weights = 0.0;
    for (std::size_t n = 0; n < samples.size(); ++n) {
        const double a = turn * (static_cast<double>(n) + 0.5) / static_cast<double>(samples.size());
        const double w =
            0.35875 - 0.48829 * std::cos(a) + 0.14128 * std::cos(2 * a) - 0.01168 * std::cos(3 * a);
        sum += w * samples[n] * std::polar(1.0, -turn * hz / sampleRate * static_cast<double>(n));
        weights += w;
    }
    return sum / weights;
}

inline double decibels(double amplitude) { return 20.0 * std::log10(amplitude); }

}  // namespace hxr::test
