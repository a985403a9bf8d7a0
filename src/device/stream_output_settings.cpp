#include "device/stream_output_settings.h"

#include <algorithm>

#include "device/channel_settings.h"
#include "device/setting_limits.h"

namespace hxr {
HXRStatus setStreamVrtChannelID(ChannelSettings& settings, int channel, int id) {
    const auto c = channelIndex(settings, channel);
    if (!c || id < 0) return hxrInvalidParameterErr;
    const auto channels =
        std::span(settings.vrtStreamId).first(static_cast<std::size_t>(settings.channelCount));
    if (std::ranges::find(channels, id) != channels.end()) return hxrInvalidParameterErr;
    settings.vrtStreamId[*c] = id;
    return hxrNoError;
}

HXRStatus setStreamVrtContext(StreamOutputSettings& settings, int enabled, int interval) {
    if (enabled == 0) {
        settings.vrtContextEnabled = false;
        settings.vrtContextInterval = defaultContextInterval;
        return hxrNoError;
    }
    if (enabled != 1 || !contextIntervalLimits.contain(interval)) return hxrInvalidParameterErr;
    settings.vrtContextEnabled = true;
    settings.vrtContextInterval = interval;
    return hxrNoError;
}

HXRStatus setStreamVrtEndianness(StreamOutputSettings& settings, unsigned endianness) {
    return storeSelector(highestSwitch, endianness, settings.vrtEndianness);
}

}  // namespace hxr
