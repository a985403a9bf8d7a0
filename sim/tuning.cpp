#include "sim/tuning.h"

namespace hxr::sim {

std::optional<double> sharedLoHz(const UnitState& state, std::optional<double> groupHz) {
    constexpr std::uint8_t fromGroup = 0x80;
    if ((state.expander[4] & fromGroup) != 0) return groupHz;
    return state.synthesizers.sharedLoHz(state.expander);
}

ChannelTuning channelTuning(const UnitState& state, std::size_t channel, std::optional<double> groupHz) {
    const Synthesizers& chips = state.synthesizers;
    ChannelTuning tuning{pathSwitches(state.expander, channel), std::nullopt, frontEnd(state, channel),
                         captureInput(state.inputSelect, channel)};
    switch (tuning.lo.path) {
        case LoPath::none:
            break;
        case LoPath::ownLow:
            tuning.loHz = chips.lowLoHz(channel);
            break;
        case LoPath::sharedOnLow:
            tuning.loHz = sharedLoHz(state, groupHz);
            break;
        case LoPath::ownHigh:
            if (!chips.highLoFollows(channel)) tuning.loHz = chips.highLoHz(channel, std::nullopt);
            break;
        case LoPath::sharedOnHigh:
            if (chips.highLoFollows(channel))
                tuning.loHz = chips.highLoHz(channel, sharedLoHz(state, groupHz));
            break;
    }
    return tuning;
}

LockFlags lockFlags(const UnitState& state) {
    const auto shared = sharedLoHz(state);
    LockFlags flags;
    for (std::size_t channel = 0; channel < channelCount; ++channel) {
        const bool onShared = pathSwitches(state.expander, channel).path == LoPath::sharedOnLow;
        const bool second =
            onShared ? shared.has_value() : state.synthesizers.highLoHz(channel, shared).has_value();
        const auto channelBit = static_cast<std::uint8_t>(1u << channel);
        if (state.synthesizers.lowLoHz(channel)) flags.first |= channelBit;
        if (second) flags.second |= channelBit;
    }
    return flags;
}

}  // namespace hxr::sim
