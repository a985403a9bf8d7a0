/// Generator settings.

#include "api/entry.h"
#include "device/generator_settings.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;

HXRStatus hxrSetVSGEnabled(int handle, int on) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.vsgEnabled = on != 0;
        return hxrNoError;
    });
}

HXRStatus hxrSetVSGLevel(int handle, double dBm) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setVSGLevel(device, dBm); });
}

HXRStatus hxrSetVSGPattern(int handle, const void* samples, int count, unsigned type) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (samples == nullptr) return hxrNullPointerErr;
        return hxr::setVSGPattern(device, samples, count, type);
    });
}

HXRStatus hxrAdminSetVSGPatternDirect(int handle, const float* samples, int count) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (samples == nullptr) return hxrNullPointerErr;
        return hxr::setVSGPatternDirect(device, samples, count);
    });
}

HXRStatus hxrAdminSetVSGAtten(int handle, int step) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setVSGAtten(device, step); });
}
