#include "patterns.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numbers>
#include <random>
#include <span>
#include <stdexcept>

#include "support.h"

namespace tools {
namespace {

constexpr double pi = std::numbers::pi, wholeTurn = 2 * pi;
constexpr std::size_t length = longestPattern;

/// The nearest number of whole turns in a pattern.
double turnsOf(double hz) { return std::round(hz * length / patternRate); }

/// A sample of what turns so many times in a pattern.
std::complex<double> turned(double turns, std::size_t n) {
    return std::polar(1.0, wholeTurn * turns * static_cast<double>(n) / length);
}

/// A raised cosine's root, at a time in symbols.
double pulse(double time) {
    constexpr double rollOff = 0.25;
    const double ramp = 4 * rollOff * time;
    if (std::abs(time) < 1e-9) return 1 - rollOff + 4 * rollOff / pi;
    if (std::abs(std::abs(ramp) - 1) < 1e-9)
        return rollOff / std::numbers::sqrt2 *
               ((1 + 2 / pi) * std::sin(pi / 4 / rollOff) + (1 - 2 / pi) * std::cos(pi / 4 / rollOff));
    return (std::sin(pi * time * (1 - rollOff)) + ramp * std::cos(pi * time * (1 + rollOff))) /
           (pi * time * (1 - ramp * ramp));
}

/// Random symbols on a grid of `perAxis` by `perAxis` places, or two places for none on the second axis.
Pattern symbols(int perAxis, bool bothAxes, double symbolRate) {
    constexpr int reach = 12;  // of a pulse, in symbols
    const double wanted = std::clamp(std::round(std::log2(patternRate / symbolRate)), 1.0, 8.0);
    const std::size_t samplesEach = std::size_t{1} << static_cast<unsigned>(wanted);
    const int half = reach * static_cast<int>(samplesEach);
    std::mt19937 random(2);
    const auto place = [&] {
        return 2.0 * static_cast<double>(random() % static_cast<unsigned>(perAxis)) - perAxis + 1;
    };
    Pattern pattern(length);
    for (std::size_t at = 0; at < length; at += samplesEach) {
        const double i = place(), q = bothAxes ? place() : 0;
        for (int n = -half; n <= half; ++n)
            pattern[(at + length + static_cast<std::size_t>(n)) % length] +=
                std::complex(i, q) * pulse(n / static_cast<double>(samplesEach));
    }
    return pattern;
}

/// What turns faster and slower `turns` times, by so much.
Pattern swung(double turns, double deviationHz) {
    Pattern pattern(length);
    const double index = deviationHz / (std::max(turns, 1.0) * patternRate / length);
    for (std::size_t n = 0; n < length; ++n)
        pattern[n] = std::polar(1.0, index * turned(std::max(turns, 1.0), n).imag());
    return pattern;
}

/// From one edge of the width to the other and back, which joins end and beginning.
Pattern chirp(double deviationHz) {
    Pattern pattern(length);
    double phase = 0;
    for (std::size_t n = 0; n < length; ++n) {
        const double place = 4 * static_cast<double>(n) / length;  // 0 to 4, a triangle between -1 and 1
        phase += wholeTurn * deviationHz / patternRate * (place < 2 ? place - 1 : 3 - place);
        pattern[n] = std::polar(1.0, phase);
    }
    return pattern;
}

Pattern shapeOf(const PatternForm& form) {
    const double sound = turnsOf(form.soundHz);
    Pattern pattern(length, 1.0);
    if (form.name == "two-tone") {
        for (std::size_t n = 0; n < length; ++n) pattern[n] = turned(sound, n) + turned(-sound, n);
    } else if (form.name == "am") {
        for (std::size_t n = 0; n < length; ++n) pattern[n] = 1 + form.depth * turned(sound, n).real();
    } else if (form.name == "fm") {
        pattern = swung(sound, form.deviationHz);
    } else if (form.name == "chirp") {
        pattern = chirp(form.deviationHz);
    } else if (form.name == "bpsk" || form.name == "qpsk") {
        pattern = symbols(2, form.name == "qpsk", form.symbolRate);
    } else if (form.name == "16qam") {
        pattern = symbols(4, true, form.symbolRate);
    }
    return pattern;
}

template <typename Number>
Pattern readAs(std::ifstream& file, double fullScale) {
    std::vector<Number> numbers(2 * longestPattern + 1);
    file.read(reinterpret_cast<char*>(numbers.data()),
              static_cast<std::streamsize>(numbers.size() * sizeof(Number)));
    const auto bytes = static_cast<std::size_t>(file.gcount());
    const std::size_t samples = bytes / (2 * sizeof(Number));
    constexpr std::size_t step = 16;
    if (samples < step || samples > longestPattern || samples % step != 0 ||
        bytes % (2 * sizeof(Number)) != 0)
        throw UsageError("a pattern has 16 to 4096 samples, a multiple of 16; this file has " +
                         std::to_string(bytes) + " bytes or more");
    Pattern pattern;
    for (std::size_t n = 0; n < samples; ++n)
        pattern.emplace_back(static_cast<double>(numbers[2 * n]) / fullScale,
                             static_cast<double>(numbers[2 * n + 1]) / fullScale);
    if (!std::ranges::all_of(pattern, [](const auto& sample) { return std::norm(sample) <= 2; }))
        throw UsageError("a pattern's samples lie between -1 and 1");
    return pattern;
}

}  // namespace

Pattern makePattern(const PatternForm& form) {
    Pattern pattern = shapeOf(form);
    const double turns = turnsOf(form.offsetHz);
    double highest = 0;
    for (std::size_t n = 0; n < length; ++n) {
        pattern[n] *= turned(turns, n);
        highest = std::max(highest, std::abs(pattern[n]));
    }
    for (auto& sample : pattern) sample /= highest;
    return pattern;
}

Pattern readPattern(const std::string& path, bool floats) {
    constexpr double fullScaleOf16Bits = 32768;
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("can't read " + path);
    return floats ? readAs<float>(file, 1) : readAs<std::int16_t>(file, fullScaleOf16Bits);
}

double meanPower(const Pattern& pattern) {
    double sum = 0;
    for (const auto& sample : pattern) sum += std::norm(sample);
    return sum / static_cast<double>(pattern.size());
}

void setPattern(int handle, const Pattern& pattern) {
    // The generator's way out turns a spectrum round.
    std::vector<std::complex<float>> samples;
    for (const auto& sample : pattern) samples.emplace_back(std::conj(sample));
    check("pattern", hxrSetVSGPattern(handle, samples.data(), static_cast<int>(samples.size()), 1));
}

}  // namespace tools
