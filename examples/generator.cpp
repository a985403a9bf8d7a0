// Plays two lines on the generator and sweeps what the unit's own receiver hears:  generator HOST_ADDRESS UNIT_ADDRESS PORT

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "example.h"

int main(int argc, char** argv) {
    const int unit = openUnits(argc, argv, 1);
    constexpr double centreHz = 3.6e9, levelDbm = -10;

    // 256 samples at 125 MS/s hold 16 turns of 7.8125 MHz. What turns forward comes out below the frequency.
    std::vector<std::complex<float>> pattern(256);
    for (std::size_t n = 0; n < pattern.size(); ++n) {
        const double turn = 2 * std::numbers::pi * static_cast<double>(n) / 16;
        pattern[n] = std::complex<float>(std::polar(0.75, turn) + std::polar(0.25, -turn));
    }
    check("generator", hxrSetVSGEnabled(unit, 1));
    check("frequency", hxrSetSharedFreq(unit, centreHz));
    check("level", hxrSetVSGLevel(unit, levelDbm));
    check("pattern", hxrSetVSGPattern(unit, pattern.data(), static_cast<int>(pattern.size()), 1));

    const std::array<int, 4> enabled{1, 0, 0, 0};
    check("channels", hxrSetChannelConfig(unit, enabled.data(), 0));
    check("range", hxrSetSweepCenterSpan(unit, centreHz, 30e6));
    check("bandwidths", hxrSetSweepCoupling(unit, 100e3, 30e3, 1e-3));
    check("reference level", hxrSetSweepRefLevel(unit, levelDbm));
    check("initiate", hxrInitiate(unit));  // the generator plays from here to hxrAbort

    double start = 0, step = 0;
    int points = 0;
    check("parameters", hxrSweepGetParameters(unit, nullptr, nullptr, &start, &step, &points));
    std::vector<float> trace(static_cast<std::size_t>(points));
    check("sweep", hxrGetSweep(unit, trace.data()));
    check("abort", hxrAbort(unit));
    for (const double offsetHz : {-7.8125e6, 7.8125e6}) {
        const auto middle = static_cast<long>(std::lround((centreHz + offsetHz - start) / step));
        const float level = *std::max_element(trace.begin() + middle - 20, trace.begin() + middle + 20);
        std::printf("%.4f GHz: %.2f dBm\n", (centreHz + offsetHz) / 1e9, static_cast<double>(level));
    }
    return hxrCloseDevice(unit);
}
