/// Sweep settings.

#include "api/entry.h"
#include "device/sweep_settings.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;

HXRStatus hxrSetSweepRefLevel(int handle, double dBm) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.sweepRefLevel = dBm;
        return hxrNoError;
    });
}

HXRStatus hxrSetSweepAtten(int handle, int atten) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setSweepAtten(device, atten); });
}

HXRStatus hxrSetSweepCenterSpan(int handle, double center, double span) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setSweepCenterSpan(device, center, span); });
}

HXRStatus hxrSetSweepStartStop(int handle, double start, double stop) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setSweepStartStop(device, start, stop); });
}

HXRStatus hxrSetSweepCoupling(int handle, double rbw, double vbw, double time) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::setSweepCoupling(device, rbw, vbw, time); });
}

HXRStatus hxrSetSweepDetector(int handle, unsigned detector, unsigned videoUnits) {
    return deviceEntry(
        handle, [&](HXRDevice& device) { return hxr::setSweepDetector(device, detector, videoUnits); });
}

HXRStatus hxrSetSweepScale(int handle, unsigned scale) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setSweepScale(device, scale); });
}

HXRStatus hxrSetSweepWindow(int handle, unsigned window) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setSweepWindow(device, window); });
}
