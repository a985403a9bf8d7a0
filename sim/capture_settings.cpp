#include "sim/capture_settings.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace hxr::sim {
namespace {

constexpr std::uint16_t firstOscillator = 0x300;
constexpr std::uint16_t registersPerOscillator = 2;
constexpr std::uint16_t firstTapBlock = 252;
constexpr std::uint16_t registersPerTapBlock = 128;
constexpr std::uint16_t zerosAheadOfTaps = 4;

double oscillatorHz(const RegisterFile& registers, std::size_t channel) {
    constexpr int wordBits = 56;
    constexpr std::uint64_t wordMask = (std::uint64_t{1} << wordBits) - 1;
    const auto at = static_cast<std::uint16_t>(firstOscillator + registersPerOscillator * channel);
    const std::uint64_t low = registers.read(at).value_or(0);
    const std::uint64_t high = registers.read(static_cast<std::uint16_t>(at + 1)).value_or(0);
    return std::ldexp(static_cast<double>((high << 32 | low) & wordMask) * frontEndRateHz, -wordBits);
}

RailTaps loadedTaps(const RegisterFile& registers, std::size_t channel) {
    constexpr double fullScale = 32000.0;
    const auto first =
        static_cast<std::uint16_t>(firstTapBlock + registersPerTapBlock * channel + zerosAheadOfTaps);
    RailTaps taps;
    for (std::size_t n = 0; n < railTapCount; ++n) {
        const std::uint32_t word = registers.read(static_cast<std::uint16_t>(first + n)).value_or(0);
        taps.i[n] = static_cast<std::int16_t>(static_cast<std::uint16_t>(word)) / fullScale;
        taps.q[n] = static_cast<std::int16_t>(static_cast<std::uint16_t>(word >> 16)) / fullScale;
    }
    return taps;
}

/// The tuning step of an LO: the next line of the 39.0625 MHz grid.
std::size_t stepOf(double loHz) {
    constexpr double fineGridHz = 3'906'250.0;
    constexpr std::int64_t finePerStep = 10;
    const std::int64_t fine = std::llround(loHz / fineGridHz);
    const std::int64_t step = (fine + finePerStep - 1) / finePerStep;
    return static_cast<std::size_t>(std::clamp<std::int64_t>(step, 0, layout::gridPoints - 1));
}

}  // namespace

std::optional<CaptureSettings> captureSettings(const UnitState& state, const Oscillator& oscillator,
                                               std::optional<double> groupHz) {
    for (std::size_t channel = 0; channel < channelCount; ++channel) {
        const CaptureInput input = captureInput(state.inputSelect, channel);
        if (!input.low && !input.high && !input.fullBand) continue;
        return CaptureSettings{channel, channelTuning(state, channel, groupHz),
                               oscillatorHz(state.registers, channel), loadedTaps(state.registers, channel),
                               oscillator.frequencyRatio(state.timebaseDac)};
    }
    return std::nullopt;
}

bool isDirect(const ChannelTuning& tuning) { return tuning.frontEnd.band == 0; }

// A step that is cut at the edge of a preselector band belongs, where the table says so, to the neighbour with
// which it shares the band.
std::size_t calibrationIndex(const ChannelTuning& tuning) {
    constexpr struct {
        std::size_t step;
        int band;
        std::size_t index;
    } neighbours[] = {{4, 4, 5}, {6, 4, 5}, {8, 6, 9}};

    if (isDirect(tuning)) return 1;
    const std::size_t step = stepOf(tuning.loHz.value_or(0.0));
    for (const auto& row : neighbours) {
        if (row.step == step && row.band == tuning.frontEnd.band) return row.index;
    }
    return step;
}

ResponseRow responseRow(const ChannelTuning& tuning) {
    constexpr std::size_t lastRow = 510;
    constexpr std::size_t firstHighRow = 144;
    constexpr std::size_t lastCrossed = 24;
    std::size_t k = std::min(calibrationIndex(tuning), lastRow);
    if (k == 1) k = 0;
    const bool shared = tuning.lo.path == LoPath::sharedOnLow || tuning.lo.path == LoPath::sharedOnHigh;
    const bool low = !shared && k < firstHighRow;
    return {low ? ResponseGrid::low : ResponseGrid::full, k, k <= lastCrossed};
}

}  // namespace hxr::sim
