/// Stream settings.

#include "api/entry.h"
#include "device/stream_output_settings.h"
#include "device/stream_settings.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;

HXRStatus hxrSetStreamDataType(int handle, unsigned type) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamDataType(device, type); });
}

HXRStatus hxrSetStreamFullScale(int handle, unsigned on) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamFullScale(device, on); });
}

HXRStatus hxrSetStreamRefLevel(int handle, double dBm) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.streamRefLevel = dBm;
        return hxrNoError;
    });
}

HXRStatus hxrSetStreamAtten(int handle, int atten) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamAtten(device, atten); });
}

HXRStatus hxrSetStreamSampleRate(int handle, int decimation) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamSampleRate(device, decimation); });
}

HXRStatus hxrSetStreamBandwidth(int handle, double hz) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamBandwidth(device, hz); });
}

HXRStatus hxrSetStreamTriggerEdge(int handle, unsigned edge) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamTriggerEdge(device, edge); });
}

HXRStatus hxrSetStreamMode(int handle, unsigned mode) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setStreamMode(device, mode); });
}

HXRStatus hxrSetStreamLocalAddr(int handle, int unit, uint16_t port) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamLocalAddr(device, unit, port); });
}

HXRStatus hxrSetStreamVrtAddr(int handle, int channel, const char* address, uint16_t port, uint64_t mac) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (address == nullptr) return hxrNullPointerErr;
        return hxr::setStreamVrtAddr(device, channel, address, port, mac);
    });
}

HXRStatus hxrSetStreamVrtChannelID(int handle, int channel, int id) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamVrtChannelID(device, channel, id); });
}

HXRStatus hxrSetStreamVrtCntxInterval(int handle, int enabled, int interval) {
    return deviceEntry(
        handle, [&](HXRDevice& device) { return hxr::setStreamVrtContext(device, enabled, interval); });
}

HXRStatus hxrSetStreamVrtEndianness(int handle, unsigned endianness) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setStreamVrtEndianness(device, endianness); });
}

HXRStatus hxrStreamCorrection(int handle, int channel, float* correction) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        if (correction == nullptr) return hxrNullPointerErr;
        return hxr::getStreamCorrection(device, channel, *correction);
    });
}
