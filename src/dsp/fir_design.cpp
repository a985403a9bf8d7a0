#include "dsp/fir_design.h"

#include <cmath>
#include <numbers>
#include <numeric>

namespace hxr {
namespace {

constexpr double pi = std::numbers::pi;

double sinc(double x) { return x == 0.0 ? 1.0 : std::sin(pi * x) / (pi * x); }

double blackman(double position, double last) {
    const double edge = std::cos(pi / last);
    const double alpha = -0.25 / (edge * edge);
    const double angle = 2.0 * pi * position / last;
    return (alpha + 1.0) / 2.0 - 0.5 * std::cos(angle) - alpha / 2.0 * std::cos(2.0 * angle);
}

}  // namespace

void firDesignLowpass(double cutoff, std::span<double> taps, FirWindow window, bool normalise) {
    const double last = static_cast<double>(taps.size()) - 1.0;
    for (std::size_t n = 0; n < taps.size(); ++n) {
        const double position = static_cast<double>(n);
        const double weight = window == FirWindow::blackman ? blackman(position, last) : 1.0;
        taps[n] = 2.0 * cutoff * sinc(2.0 * cutoff * (position - last / 2.0)) * weight;
    }
    if (!normalise) return;
    const double gain = std::fabs(std::accumulate(taps.begin(), taps.end(), 0.0));
    for (double& tap : taps) tap /= gain;
}

void designLowpass(float cutoff, std::span<double> taps, FirWindow window) {
    firDesignLowpass(double{cutoff}, taps, window, true);
}

}  // namespace hxr
