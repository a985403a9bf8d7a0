#include "stream/filter_design.h"

#include <algorithm>

#include "dsp/fir_design.h"

namespace hxr {

void designDecimationTaps(double bandwidthRatio, std::span<double, decimationTaps> taps) {
    // 5 percent of the hardware rate beyond either band edge.
    const double cutoff = (std::max(bandwidthRatio, 0.02) + 0.1) / 5.0 * 0.5;
    designLowpass(static_cast<float>(cutoff), taps, FirWindow::blackman);
}

std::vector<cf32> designHostTaps(double outputBandwidth, int hardwareDecimation, int hostDecimation) {
    const double hardwareRate = 5e7 / hardwareDecimation;
    const double cutoff = outputBandwidth / hardwareRate * 0.5;
    std::vector<double> design(static_cast<std::size_t>(hostDecimation) * 64 + 1);
    designLowpass(static_cast<float>(cutoff), design, FirWindow::blackman);
    std::vector<cf32> taps(design.size());
    std::transform(design.begin(), design.end(), taps.begin(), [](double tap) {
        return cf32{static_cast<float>(tap), 0.0F};
    });
    return taps;
}

}  // namespace hxr
