#include "device/channel_settings.h"

#include <cmath>
#include <numbers>

#include "device/setting_limits.h"

namespace hxr {

std::optional<std::size_t> channelIndex(const ChannelSettings& settings, int channel) {
    if (channel < 0 || channel >= settings.channelCount) return std::nullopt;
    return static_cast<std::size_t>(channel);
}

bool streams(const ChannelSettings& settings, std::size_t channel) {
    return settings.channelEnabled[channel] && static_cast<int>(channel) != settings.focusChannel;
}

bool isShared(const ChannelSettings& settings, std::size_t channel) {
    return streams(settings, channel) && settings.channelShared[channel];
}

HXRStatus setChannelConfig(HXRDevice& device, std::span<const int> enabled, int focus) {
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    device.sweepActive = device.streamActive = false;
    device.focusChannel = -1;
    for (std::size_t c = 0; c < enabled.size(); ++c) {
        device.channelEnabled[c] = enabled[c] != 0;
        if (!device.channelEnabled[c]) continue;
        if (static_cast<int>(c) == focus) {
            device.sweepActive = true;
            device.focusChannel = focus;
        } else {
            device.streamActive = true;
        }
    }
    return hxrNoError;
}

HXRStatus setChannelShared(ChannelSettings& settings, int channel, unsigned shared) {
    const auto c = channelIndex(settings, channel);
    return c ? storeSelector(highestSwitch, shared, settings.channelShared[*c]) : hxrInvalidParameterErr;
}

HXRStatus setChannelFreq(ChannelSettings& settings, int channel, double hz) {
    const auto c = channelIndex(settings, channel);
    return c ? storeWithin(frequencyLimits, hz, settings.channelFreq[*c]) : hxrInvalidParameterErr;
}

HXRStatus setChannelDelay(ChannelSettings& settings, int channel, double seconds) {
    const auto c = channelIndex(settings, channel);
    return c ? storeWithin(delayLimits, seconds, settings.channelDelay[*c]) : hxrInvalidParameterErr;
}

HXRStatus setSharedFreq(ChannelSettings& settings, double hz) {
    return storeWithin(frequencyLimits, hz, settings.sharedFreq);
}

HXRStatus setChannelPhaseOffset(ChannelSettings& settings, int channel, double radians) {
    constexpr double turn = 2 * std::numbers::pi;
    const auto c = channelIndex(settings, channel);
    if (!c || !std::isfinite(radians)) return hxrInvalidParameterErr;
    double phase = std::fmod(-radians, turn);
    if (phase < 0) phase += turn;
    // A phase just below a whole turn rounds to one; and no turn at all may come out of the remainder as -0.0.
    settings.channelPhaseOffset[*c] = phase == turn || phase == 0 ? 0.0 : phase;
    return hxrNoError;
}

}  // namespace hxr
