// Plays a modulated pattern on the unit's generator and sweeps what its own receiver hears of it: whether the level is
// right, and what the modulator adds beside it:  generator HOST_ADDRESS UNIT_ADDRESS PORT FILE
//
// Writes the trace to the file, for a plot: Hz, dBm.

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "hxr_api.h"
#include "unit.h"

namespace {

constexpr double centreHz = 3.6e9;
constexpr double levelDbm = 0;
constexpr double pi = std::numbers::pi;

// The modulator works so far below its carrier.
constexpr double offsetHz = 23.4375e6;

constexpr double patternRate = 125e6;
constexpr std::size_t length = 4096;
constexpr std::size_t samplesPerSymbol = 16;
constexpr double rollOff = 0.25;
constexpr double widthHz = patternRate / samplesPerSymbol * (1 + rollOff);

void check(HXRStatus status, const char* what) {
    if (status < 0) throw std::runtime_error(std::string(what) + ": " + hxrGetErrorString(status));
}

// A raised cosine's root, at a time in symbols.
double pulse(double time) {
    const double ramp = 4 * rollOff * time;
    if (std::abs(time) < 1e-9) return 1 - rollOff + 4 * rollOff / pi;
    if (std::abs(std::abs(ramp) - 1) < 1e-9)
        return rollOff / std::numbers::sqrt2 *
               ((1 + 2 / pi) * std::sin(pi / 4 / rollOff) + (1 - 2 / pi) * std::cos(pi / 4 / rollOff));
    return (std::sin(pi * time * (1 - rollOff)) + ramp * std::cos(pi * time * (1 + rollOff))) /
           (pi * time * (1 - ramp * ramp));
}

// Random symbols of four phases, 7.8125 million a second, one after the other without a seam. The highest sample has the
// amplitude 1, so that nothing clips.
std::vector<std::complex<float>> makePattern() {
    constexpr int reach = 12;  // of a pulse, in symbols
    std::vector<std::complex<double>> samples(length);
    std::mt19937 random(2);
    for (std::size_t symbol = 0; symbol < length; symbol += samplesPerSymbol) {
        const auto phase = std::polar(1.0, pi / 2 * (static_cast<double>(random() % 4) + 0.5));
        constexpr int half = reach * static_cast<int>(samplesPerSymbol);
        for (int n = -half; n <= half; ++n) {
            const std::size_t at = (symbol + length + static_cast<std::size_t>(n)) % length;
            samples[at] += phase * pulse(n / static_cast<double>(samplesPerSymbol));
        }
    }
    double highest = 0;
    for (const auto& sample : samples) highest = std::max(highest, std::abs(sample));
    std::vector<std::complex<float>> pattern(length);
    std::transform(samples.begin(), samples.end(), pattern.begin(),
                   [&](const auto& sample) { return std::complex<float>(sample / highest); });
    return pattern;
}

double meanPower(const std::vector<std::complex<float>>& pattern) {
    double sum = 0;
    for (const auto& sample : pattern) sum += static_cast<double>(std::norm(sample));
    return sum / static_cast<double>(pattern.size());
}

struct Trace {
    double startHz = 0, binHz = 0, rbwHz = 0;
    std::vector<float> dbm;

    // What lies around a frequency, altogether, in dBm.
    double power(double hz, double width) const {
        double sum = 0;
        for (std::size_t i = 0; i < dbm.size(); ++i) {
            if (std::abs(startHz + static_cast<double>(i) * binHz - hz) <= width / 2)
                sum += std::pow(10, static_cast<double>(dbm[i]) / 10) * binHz / rbwHz;
        }
        return 10 * std::log10(sum);
    }
};

void play(int handle, const std::vector<std::complex<float>>& pattern) {
    check(hxrSetVSGEnabled(handle, 1), "generator");
    check(hxrSetSharedFreq(handle, centreHz), "frequency");
    check(hxrSetVSGLevel(handle, levelDbm), "level");
    check(hxrSetVSGPattern(handle, pattern.data(), static_cast<int>(pattern.size()), 1), "pattern");
}

Trace sweep(int handle) {
    const std::array<int, 4> enabled{1, 0, 0, 0};
    check(hxrSetChannelConfig(handle, enabled.data(), 0), "channels");
    check(hxrSetSweepRefLevel(handle, levelDbm), "reference level");
    check(hxrSetSweepStartStop(handle, centreHz - 35e6, centreHz + 75e6), "span");
    check(hxrSetSweepCoupling(handle, 100e3, 10e3, 1e-3), "bandwidths");
    check(hxrSetSweepWindow(handle, 1), "window");
    check(hxrSetSweepDetector(handle, 0, 2), "detector");  // power, averaged
    check(hxrInitiate(handle), "initiate");

    Trace trace;
    int points = 0;
    check(hxrSweepGetParameters(handle, &trace.rbwHz, nullptr, &trace.startHz, &trace.binHz, &points),
          "parameters");
    trace.dbm.resize(static_cast<std::size_t>(points));
    check(hxrGetSweep(handle, trace.dbm.data()), "sweep");
    return trace;
}

void write(const Trace& trace, const char* path) {
    std::ofstream file(path);
    file.precision(12);
    for (std::size_t i = 0; i < trace.dbm.size(); ++i)
        file << trace.startHz + static_cast<double>(i) * trace.binHz << ' ' << trace.dbm[i] << '\n';
    if (!file.flush()) throw std::runtime_error(std::string("can't write ") + path);
}

}  // namespace

int main(int argc, char** argv) try {
    const Unit unit(argc, argv, "FILE");
    const auto pattern = makePattern();
    play(unit.handle, pattern);
    const Trace trace = sweep(unit.handle);
    check(hxrAbort(unit.handle), "abort");

    const double expected = levelDbm + 10 * std::log10(meanPower(pattern));
    const double heard = trace.power(centreHz, widthHz);
    std::printf("pattern          %zu samples, %.4g MHz wide\n", length, widthHz / 1e6);
    std::printf("power            %.2f dBm at %.6g GHz, %.2f dBm expected\n", heard, centreHz / 1e9,
                expected);
    std::printf("carrier leak     %.1f dBc\n", trace.power(centreHz + offsetHz, 1e6) - heard);
    std::printf("image            %.1f dBc\n", trace.power(centreHz + 2 * offsetHz, widthHz) - heard);
    write(trace, argv[4]);
    if (std::abs(heard - expected) < 0.2) return 0;
    std::printf("the level is wrong\n");
    return 1;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
