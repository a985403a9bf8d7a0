#include "cal/correction_lookup.h"

#include <algorithm>
#include <iterator>
#include <numbers>

#include "cal/image.h"

namespace hxr {
namespace {

constexpr int lastTemperature = 6;
constexpr int lastChannel = 3;
constexpr int lastAttenuator = 6;
constexpr int lastFrequency = 513;
constexpr int firstLoftFrequency = 144;
constexpr int lastLoftPoint = 369;

int onChannels(int channel) { return std::clamp(channel, 0, lastChannel); }
int onGrid(int k) { return std::clamp(k, 0, lastFrequency); }

}  // namespace

void updateTemperature(CorrectionState& state, float temperature) {
    const auto settle = [&state](int index, double fraction) {
        // The last slice is the upper end of the last pair; there is no slice behind it.
        const bool beyondLastPair = index >= lastTemperature;
        state.tempIndex = beyondLastPair ? lastTemperature - 1 : index;
        state.tempFraction = beyondLastPair ? 1.0 : fraction;
    };
    if (state.manualTemp) return settle(state.manualTempIndex, 0.0);

    state.temperature = temperature;
    // Points that were never measured are NaN and count as not above the temperature, so that a dummy image
    // ends at its last slice.
    const auto& points = state.image->tempAtIndex;
    const auto firstAbove = std::find_if(std::begin(points), std::end(points),
                                         [temperature](float point) { return point > temperature; });
    const auto passed = static_cast<int>(firstAbove - std::begin(points));
    if (passed == 0) return settle(0, 0.0);
    if (firstAbove == std::end(points)) return settle(lastTemperature, 0.0);
    const float below = points[passed - 1];
    const float fraction = (temperature - below) / (*firstAbove - below);
    settle(passed - 1, fraction);
}

float lookupGain(const CorrectionState& state, int channel, int attenuator, int k) {
    const int c = onChannels(channel);
    const int a = std::clamp(attenuator, 0, lastAttenuator);
    const int f = onGrid(k);
    const auto& table = state.image->gainTable;
    return atTemperature(state, table[state.tempIndex][c][a][f], table[state.tempIndex + 1][c][a][f]);
}

double interpolateCoarseTune(const CorrectionState& state) {
    const double lower = state.image->coarseTuneByTemp[state.tempIndex];
    const double upper = state.image->coarseTuneByTemp[state.tempIndex + 1];
    // The fraction is rounded as for the other tables, the rest isn't.
    const double fraction = static_cast<float>(state.tempFraction);
    if (fraction == 0.0) return lower;
    if (fraction == 1.0) return upper;
    return (1.0 - fraction) * lower + fraction * upper;
}

std::uint8_t lookupGainCode(const CorrectionState& state, int channel, int k) {
    return state.image->channelGainCode[onChannels(channel)][onGrid(k)];
}

LoftPair lookupLoft(const CorrectionState& state, int channel, int k) {
    if (state.loftOverride) return {state.loftOverrideI, state.loftOverrideQ};
    if (!cal::hasPretestCorrections(*state.image)) return {};
    const int c = onChannels(channel);
    const int point = std::clamp(k - firstLoftFrequency, 0, lastLoftPoint);
    return {state.image->loftI[c][point], state.image->loftQ[c][point]};
}

float lookupChannelPhase(const CorrectionState& state, int channel, int k) {
    constexpr double turn = 2 * std::numbers::pi;
    const auto& pair = state.image->phasePairTable[onChannels(channel)][onGrid(k)];
    const double first = pair[0];
    double second = pair[1];
    if (second - first > std::numbers::pi) {
        second -= turn;
    } else if (second - first < -std::numbers::pi) {
        second += turn;
    }
    const double phase = -(first + second) * 0.5;
    return static_cast<float>(phase - turn * std::floor(phase / turn));
}

}  // namespace hxr
