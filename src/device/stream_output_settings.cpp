#include "device/stream_output_settings.h"

#include <algorithm>
#include <array>
#include <optional>

#include "device/channel_settings.h"
#include "device/destinations.h"
#include "device/setting_limits.h"

namespace hxr {
namespace {

constexpr unsigned localMode = 0;

/// The unit at a position of a group, null for none.
HXRDevice* unitAt(HXRDevice& device, int position) {
    const GroupUnits units = groupUnits(device);
    const auto index = static_cast<std::size_t>(position);
    return position < 0 || index >= units.size() ? nullptr : &units[index];
}

/// Both endpoints of a unit, claimed for an entry; false if somebody owns one of them.
struct EntryAccess {
    explicit EntryAccess(HXRDevice& unit)
        : control(unit.link->claimControl(EndpointOwner::entry)),
          data(unit.link->claimData(EndpointOwner::entry)) {}

    explicit operator bool() const { return control && data; }

    ControlClaim control;
    DataClaim data;
};

}  // namespace

HXRStatus setStreamMode(HXRDevice& device, unsigned mode, InterfaceLock& lock) {
    if (mode > highestSwitch) return hxrInvalidParameterErr;
    const bool local = mode == localMode;
    const GroupUnits units = groupUnits(device);
    std::array<std::optional<EntryAccess>, mostUnits> access;
    for (std::size_t u = 0; u < units.size(); ++u) {
        if (isInitiated(units[u])) return hxrInvalidConfigurationErr;
        if (units[u].localStream == local) continue;
        if (!access[u].emplace(units[u])) return hxrInvalidConfigurationErr;
    }
    for (std::size_t u = 0; u < units.size(); ++u) {
        if (!access[u]) continue;
        HXRStatus pushed;
        {
            const Unlocked traffic(lock);
            pushed = local ? pushLocalDestinations(units[u], access[u]->control)
                           : pushVrtDestinations(units[u], access[u]->control);
        }
        if (pushed != hxrNoError) return pushed;
        units[u].localStream = local;
    }
    return hxrNoError;
}

HXRStatus setStreamLocalAddr(HXRDevice& device, int unit, std::uint16_t port, InterfaceLock& lock) {
    HXRDevice* const chosen = unitAt(device, unit);
    if (chosen == nullptr) return hxrInvalidParameterErr;
    const EntryAccess access(*chosen);
    if (!access) return hxrInvalidConfigurationErr;
    chosen->streamPort = port;
    const Unlocked traffic(lock);
    pushLocalDestinations(*chosen, access.control);
    return chosen->link->openDataSocket(access.data, port);
}

HXRStatus setStreamVrtAddr(HXRDevice& device, int channel, const char* address, std::uint16_t port,
                           std::uint64_t mac, InterfaceLock& lock) {
    HXRDevice* const unit = unitAt(device, channel / words::channelsPerUnit);
    const int input = channel % words::channelsPerUnit;
    if (unit == nullptr || input < 0) return hxrInvalidParameterErr;
    const DataClaim data = unit->link->claimData(EndpointOwner::entry);
    if (!data) return hxrInvalidConfigurationErr;
    ControlClaim control;
    if (!unit->localStream) {
        control = unit->link->claimControl(EndpointOwner::entry);
        if (!control) return hxrInvalidConfigurationErr;
    }
    const auto i = static_cast<std::size_t>(input);
    unit->vrtDestAddress[i] = address;
    unit->vrtDestPort[i] = port;
    unit->vrtDestMAC[i] = mac;
    if (!control) return hxrNoError;
    const Unlocked traffic(lock);
    return pushVrtDestinations(*unit, control);
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
