#include "sim/low_pass.h"

#include <cmath>
#include <numbers>

namespace hxr::sim {

double kaiserWindow(double place) {
    constexpr double steepness = 7.857;
    static const double middle = std::cyl_bessel_i(0.0, steepness);
    if (std::abs(place) > 1.0) return 0.0;
    return std::cyl_bessel_i(0.0, steepness * std::sqrt(1.0 - place * place)) / middle;
}

double idealLowPass(double time, double cutoff) {
    const double angle = 2.0 * std::numbers::pi * cutoff * time;
    return 2.0 * cutoff * (angle == 0.0 ? 1.0 : std::sin(angle) / angle);
}

}  // namespace hxr::sim
