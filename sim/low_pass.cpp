#include "sim/low_pass.h"

#include <cmath>
#include <numbers>

namespace hxr::sim {
namespace {

/// The modified Bessel function of order 0, by its power series. The standard library's writes to a variable that all
/// threads share.
double besselI0(double x) {
    double term = 1.0, sum = 1.0;
    for (int k = 1; term > 1e-17 * sum; ++k) {
        term *= (x / 2 / k) * (x / 2 / k);
        sum += term;
    }
    return sum;
}

}  // namespace

double kaiserWindow(double place) {
    constexpr double steepness = 7.857;
    static const double middle = besselI0(steepness);
    if (std::abs(place) > 1.0) return 0.0;
    return besselI0(steepness * std::sqrt(1.0 - place * place)) / middle;
}

double idealLowPass(double time, double cutoff) {
    const double angle = 2.0 * std::numbers::pi * cutoff * time;
    return 2.0 * cutoff * (angle == 0.0 ? 1.0 : std::sin(angle) / angle);
}

}  // namespace hxr::sim
