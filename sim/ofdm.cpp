#include "sim/ofdm.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <stdexcept>

#include "sim/placement.h"
#include "sim/rotation.h"
#include "sim/sources.h"

namespace hxr::sim {
namespace {

constexpr std::size_t loopSymbols = 32;

/// Lengths in samples at 50 MS/s.
struct SymbolShape {
    explicit SymbolShape(const OfdmGrid& grid)
        : useful(static_cast<std::size_t>(std::llround(captureRateHz / grid.spacingHz))),
          prefix(static_cast<std::size_t>(std::ceil(grid.prefix * static_cast<double>(useful)))) {}

    std::size_t period() const { return prefix + useful; }

    std::size_t useful;
    std::size_t prefix;
};

/// One period of the sum of all carriers, each in one of four phases.
void addSymbol(Baseband useful, std::size_t sideCarriers, std::mt19937& data) {
    constexpr double eighth = 0.125;
    const auto period = static_cast<double>(useful.size());
    const auto side = static_cast<std::ptrdiff_t>(sideCarriers);
    for (std::ptrdiff_t carrier = -side; carrier <= side; ++carrier) {
        const double quadrant = 0.25 * static_cast<double>(data() >> 30);
        addRotation(useful, {turns(eighth + quadrant), turns(static_cast<double>(carrier) / period)});
    }
}

/// Adds a symbol to a loop. It begins with its own end, and goes on over the next symbol's prefix as it
/// began; there it fades out as the next one fades in, which keeps the carriers' side lobes low.
void addFaded(std::span<float> loop, std::size_t first, std::span<const float> useful, std::size_t prefix) {
    for (std::size_t n = 0; n < 2 * prefix + useful.size(); ++n) {
        const std::size_t toEdge = std::min(n, 2 * prefix + useful.size() - 1 - n);
        const double place = (static_cast<double>(toEdge) + 0.5) / static_cast<double>(prefix);
        const double fade = place >= 1.0 ? 1.0 : 0.5 - 0.5 * std::cos(std::numbers::pi * place);
        loop[(first + n) % loop.size()] +=
            static_cast<float>(fade) * useful[(n + useful.size() - prefix) % useful.size()];
    }
}

double powerOf(std::span<const float> i, std::span<const float> q) {
    double sum = 0.0;
    for (std::size_t n = 0; n < i.size(); ++n) {
        sum += static_cast<double>(i[n]) * static_cast<double>(i[n]) +
               static_cast<double>(q[n]) * static_cast<double>(q[n]);
    }
    return sum / static_cast<double>(i.size());
}

/// Fills `out` with a loop from an index on.
void unroll(std::span<float> out, std::span<const float> loop, std::size_t index) {
    while (!out.empty()) {
        const std::size_t count = std::min(out.size(), loop.size() - index);
        std::copy_n(loop.begin() + static_cast<std::ptrdiff_t>(index), count, out.begin());
        out = out.subspan(count);
        index = 0;
    }
}

}  // namespace

OfdmGrid OfdmGrid::ofWidth(double hz, double spacingHz) {
    OfdmGrid grid;
    grid.spacingHz = spacingHz;
    constexpr double most = 1e6;
    grid.sideCarriers = static_cast<std::size_t>(std::clamp(0.5 * (hz / spacingHz - 1.0), 0.0, most));
    return grid;
}

Ofdm::Ofdm(double hz, double dbm, const OfdmGrid& grid)
    : hz_(hz), perSample_(turnsPerSample(hz)), amplitude_(amplitudeOf(dbm)) {
    constexpr double leastSpacingHz = 10e3, largestWidthHz = 45e6;
    constexpr double leastPrefix = 0.01, largestPrefix = 1.0;
    if (!(grid.spacingHz >= leastSpacingHz) || !(grid.widthHz() <= largestWidthHz) ||
        !(grid.prefix >= leastPrefix && grid.prefix <= largestPrefix))
        throw std::invalid_argument(
            "carriers of an OFDM signal are at least 10 kHz apart, and reach over at "
            "most 45 MHz");

    const SymbolShape shape(grid);
    // What is left of the side lobes further out is below -70 dB.
    const double lobesHz = 8.0 * captureRateHz / static_cast<double>(shape.prefix);
    reachHz_ = std::min(0.5 * captureRateHz, 0.5 * grid.widthHz() + lobesHz);

    loopI_.resize(loopSymbols * shape.period());
    loopQ_.resize(loopI_.size());
    std::mt19937 data;
    for (std::size_t symbol = 0; symbol < loopSymbols; ++symbol) {
        std::vector<float> i(shape.useful), q(shape.useful);
        addSymbol({i, q}, grid.sideCarriers, data);
        addFaded(loopI_, symbol * shape.period(), i, shape.prefix);
        addFaded(loopQ_, symbol * shape.period(), q, shape.prefix);
    }
    const auto scale = static_cast<float>(1.0 / std::sqrt(powerOf(loopI_, loopQ_)));
    for (auto* rail : {&loopI_, &loopQ_}) {
        for (float& value : *rail) value *= scale;
    }
}

void Ofdm::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    const Placement placement(hz_ - stretch.centreHz, reachHz_);
    if (!placement.visible()) return;

    const auto margin = static_cast<std::int64_t>(placement.margin());
    const auto length = static_cast<std::int64_t>(loopI_.size());
    const std::int64_t behind = (stretch.firstSample - margin) % length;
    const auto index = static_cast<std::size_t>(behind < 0 ? behind + length : behind);
    std::vector<float> i(samples.size() + 2 * placement.margin()), q(i.size());
    unroll(i, loopI_, index);
    unroll(q, loopQ_, index);

    const Turns perSample = perSample_ - turnsPerSample(stretch.centreHz);
    placement.add(samples, {i, q}, {phaseAt(perSample, stretch.firstSample), perSample, amplitude_ * gain});
}

}  // namespace hxr::sim
