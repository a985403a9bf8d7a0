/// Channels.

#include <algorithm>

#include "api/entry.h"
#include "device/channel_settings.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;

namespace {

/// Reads one value of a channel into the caller's variable, if there is one.
template <typename Value, typename Read>
HXRStatus readChannel(const HXRDevice& device, int channel, Value* out, Read&& read) {
    const auto c = hxr::channelIndex(device, channel);
    if (!c) return hxrInvalidParameterErr;
    if (out != nullptr) *out = static_cast<Value>(read(*c));
    return hxrNoError;
}

}  // namespace

HXRStatus hxrSetChannelConfig(int handle, const int* enabled, int focus) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (enabled == nullptr) return hxrNullPointerErr;
        return hxr::setChannelConfig(device, {enabled, static_cast<std::size_t>(device.channelCount)}, focus);
    });
}

HXRStatus hxrGetChannelConfig(int handle, int* enabled, int* focus) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (enabled != nullptr) std::copy_n(device.channelEnabled.begin(), device.channelCount, enabled);
        if (focus != nullptr) *focus = device.focusChannel;
        return hxrNoError;
    });
}

HXRStatus hxrSetChannelShared(int handle, int channel, int shared) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        return hxr::setChannelShared(device, channel, static_cast<unsigned>(shared));
    });
}

HXRStatus hxrGetChannelShared(int handle, int channel, int* shared) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        return readChannel(device, channel, shared, [&](std::size_t c) { return hxr::isShared(device, c); });
    });
}

HXRStatus hxrSetChannelFreq(int handle, int channel, double hz) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setChannelFreq(device, channel, hz); });
}

HXRStatus hxrGetChannelFreq(int handle, int channel, double* hz) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        return readChannel(device, channel, hz, [&](std::size_t c) { return device.channelFreq[c]; });
    });
}

HXRStatus hxrSetChannelPhaseOffset(int handle, int channel, double radians) {
    return deviceEntry(
        handle, [&](HXRDevice& device) { return hxr::setChannelPhaseOffset(device, channel, radians); });
}

HXRStatus hxrGetChannelPhaseOffset(int handle, int channel, double* radians) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (radians == nullptr) return hxrNullPointerErr;
        return readChannel(device, channel, radians,
                           [&](std::size_t c) { return device.channelPhaseOffset[c]; });
    });
}

HXRStatus hxrSetChannelDelay(int handle, int channel, double seconds) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setChannelDelay(device, channel, seconds); });
}

HXRStatus hxrGetChannelDelay(int handle, int channel, double* seconds) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (seconds == nullptr) return hxrNullPointerErr;
        return readChannel(device, channel, seconds, [&](std::size_t c) { return device.channelDelay[c]; });
    });
}

HXRStatus hxrSetSharedFreq(int handle, double hz) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setSharedFreq(device, hz); });
}

HXRStatus hxrGetSharedFreq(int handle, double* hz) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (hz != nullptr) *hz = device.sharedFreq;
        return hxrNoError;
    });
}
