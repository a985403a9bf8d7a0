#include "device/stream_output_settings.h"

#include <algorithm>

#include "device/channel_settings.h"
#include "device/destinations.h"
#include "device/setting_limits.h"

namespace hxr {
namespace {

constexpr unsigned localMode = 0;

/// The unit at a position of a group, null for none.
HXRDevice* unitAt(HXRDevice& device, int position) {
    const auto units = groupUnits(device);
    const auto index = static_cast<std::size_t>(position);
    return position < 0 || index >= units.size() ? nullptr : units[index];
}

}  // namespace

HXRStatus setStreamMode(HXRDevice& device, unsigned mode) {
    if (mode > highestSwitch) return hxrInvalidParameterErr;
    const bool local = mode == localMode;
    for (HXRDevice* unit : groupUnits(device)) {
        if (unit->initiated) return hxrInvalidConfigurationErr;
        if (unit->localStream == local) continue;
        const HXRStatus pushed = local ? pushLocalDestinations(*unit) : pushVrtDestinations(*unit);
        if (pushed != hxrNoError) return pushed;
        unit->localStream = local;
    }
    return hxrNoError;
}

HXRStatus setStreamLocalAddr(HXRDevice& device, int unit, std::uint16_t port) {
    HXRDevice* const chosen = unitAt(device, unit);
    if (chosen == nullptr) return hxrInvalidParameterErr;
    if (device.initiated || chosen->initiated) return hxrInvalidConfigurationErr;
    chosen->streamPort = port;
    pushLocalDestinations(*chosen);
    return chosen->link->openDataSocket(port);
}

HXRStatus setStreamVrtAddr(HXRDevice& device, int channel, const char* address, std::uint16_t port,
                           std::uint64_t mac) {
    HXRDevice* const unit = unitAt(device, channel / words::channelsPerUnit);
    if (unit == nullptr) return hxrInvalidParameterErr;
    if (unit->initiated) return hxrInvalidConfigurationErr;
    const int input = channel % words::channelsPerUnit;
    if (input < 0) return hxrInvalidParameterErr;

    const auto i = static_cast<std::size_t>(input);
    unit->vrtDestAddress[i] = address;
    unit->vrtDestPort[i] = port;
    unit->vrtDestMAC[i] = mac;
    return unit->localStream ? hxrNoError : pushVrtDestinations(*unit);
}

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
