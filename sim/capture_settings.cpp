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

constexpr std::uint16_t sharedOscillator = 0x30E;
constexpr std::uint16_t firstTurn = 0x308;

std::uint64_t oscillatorWord(const RegisterFile& registers, std::uint16_t at) {
    const std::uint64_t low = registers.read(at).value_or(0);
    const std::uint64_t high = registers.read(static_cast<std::uint16_t>(at + 1)).value_or(0);
    return high << 32 | low;
}

std::uint64_t ownOscillatorWord(const RegisterFile& registers, std::size_t channel) {
    return oscillatorWord(registers,
                          static_cast<std::uint16_t>(firstOscillator + registersPerOscillator * channel));
}

/// What turns by more than half the clock turns the other way.
double oscillatorHz(std::uint64_t word) {
    constexpr int wordBits = 56, unusedBits = 64 - wordBits;
    const auto wrapped = static_cast<std::int64_t>(word << unusedBits) >> unusedBits;
    return std::ldexp(static_cast<double>(wrapped) * frontEndRateHz, -wordBits);
}

/// Sine and cosine of the phase by which a channel's stream is turned.
std::complex<double> loadedTurn(const RegisterFile& registers, std::size_t channel) {
    constexpr double fullScale = 32767.0;
    const auto word = registers.read(static_cast<std::uint16_t>(firstTurn + channel));
    if (!word) return 1.0;
    const auto sine = static_cast<std::int16_t>(static_cast<std::uint16_t>(*word >> 16));
    const auto cosine = static_cast<std::int16_t>(static_cast<std::uint16_t>(*word));
    return {cosine / fullScale, sine / fullScale};
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

// A step that is cut at the edge of a preselector band belongs, where the table says so, to the neighbour with
// which it shares the band.
std::size_t rowOfCapture(const ChannelTuning& tuning) {
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

/// Without a mixer it is where the LO would be.
std::size_t rowOfStream(const ChannelTuning& tuning, double ncoHz) {
    constexpr double intermediateHz = 23'437'500.0;
    return stepOf(isDirect(tuning) ? intermediateHz - ncoHz : tuning.loHz.value_or(0.0));
}

/// @param shared  the channel runs on the shared LO
ResponseRow responseRow(std::size_t row, bool shared) {
    constexpr std::size_t lastRow = 510;
    constexpr std::size_t firstHighRow = 144;
    constexpr std::size_t lastCrossed = 24;
    std::size_t k = std::min(row, lastRow);
    if (k == 1) k = 0;
    const bool low = !shared && k < firstHighRow;
    return {low ? ResponseGrid::low : ResponseGrid::full, k, k <= lastCrossed};
}

/// Whether the route passes samples on as they come from the mixer: a sample path without a decimation.
bool isFullBand(const UnitState& state) {
    constexpr std::uint16_t pathOn = 0x1000, decimation = 0x0300;
    return (state.route & (pathOn | decimation)) == pathOn;
}

}  // namespace

std::optional<CaptureSettings> captureSettings(const UnitState& state, const Oscillator& oscillator,
                                               std::optional<double> groupHz) {
    for (std::size_t channel = 0; channel < channelCount; ++channel) {
        const CaptureInput input = captureInput(state.inputSelect, channel);
        if (!input.low && !input.high && !input.fullBand) continue;
        CaptureSettings settings{.channel = channel, .tuning = channelTuning(state, channel, groupHz)};
        const LoPath path = settings.tuning.lo.path;
        settings.k = rowOfCapture(settings.tuning);
        settings.response =
            responseRow(settings.k, path == LoPath::sharedOnLow || path == LoPath::sharedOnHigh);
        if (!isFullBand(state)) settings.ncoHz = oscillatorHz(ownOscillatorWord(state.registers, channel));
        settings.taps = loadedTaps(state.registers, channel);
        settings.timebaseRatio = oscillator.frequencyRatio(state.timebaseDac);
        return settings;
    }
    return std::nullopt;
}

CaptureSettings streamSettings(const UnitState& state, std::size_t channel, double timebaseRatio,
                               std::optional<double> groupHz) {
    constexpr std::uint64_t takesSharedOscillator = std::uint64_t{1} << 62;
    CaptureSettings settings{.channel = channel, .tuning = channelTuning(state, channel, groupHz)};
    const std::uint64_t own = ownOscillatorWord(state.registers, channel);
    settings.sharesOscillator = (own & takesSharedOscillator) != 0;
    settings.ncoHz =
        oscillatorHz(settings.sharesOscillator ? oscillatorWord(state.registers, sharedOscillator) : own);
    settings.k = rowOfStream(settings.tuning, settings.ncoHz);
    settings.response = responseRow(isDirect(settings.tuning) ? 0 : settings.k, settings.sharesOscillator);
    settings.taps = loadedTaps(state.registers, channel);
    settings.timebaseRatio = timebaseRatio;
    settings.decimation = DecimationFilter::loaded(state.registers, streamDecimation(state));
    settings.turn = loadedTurn(state.registers, channel);
    return settings;
}

std::size_t streamDecimation(const UnitState& state) {
    constexpr int codeBit = 8;
    const unsigned code = state.route >> codeBit & 3;
    return code == 0 ? 1 : std::size_t{1} << (code - 1);
}

bool isDirect(const ChannelTuning& tuning) { return tuning.frontEnd.band == 0; }

}  // namespace hxr::sim
