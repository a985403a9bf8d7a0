/// GPS and timebase.

#include "api/entry.h"
#include "device/gps.h"
#include "device/timebase.h"

using hxr::HXRDevice;
using hxr::InterfaceLock;
using hxr::api::deviceEntry;
using hxr::api::give;
using hxr::api::readEntry;

HXRStatus hxrSetReference(int handle, unsigned ref) {
    return deviceEntry(
        handle, [&](HXRDevice& device, InterfaceLock& lock) { return hxr::setReference(device, ref, lock); });
}

HXRStatus hxrGetReference(int handle, unsigned* ref) {
    return readEntry(handle, ref, [](const HXRDevice& device) { return device.reference; });
}

HXRStatus hxrSetGPSTimebaseUpdate(int handle, unsigned on) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::setGpsTimebaseUpdate(device, on, lock);
    });
}

HXRStatus hxrGetGPSTimebaseUpdate(int handle, unsigned* on) {
    return readEntry(handle, on, [](const HXRDevice& device) { return device.gpsTimebaseUpdate; });
}

HXRStatus hxrGetGPSHoldoverInfo(int handle, int* usingHoldover, uint64_t* lastTime) {
    return deviceEntry(handle, [&](const HXRDevice& device) {
        const hxr::TimebaseState timebase = device.timebase.copy();
        const bool newest = timebase.holdoverTime > hxr::lastFactoryTuneDate(device);
        give(usingHoldover, timebase.holdoverValid && newest ? 1 : 0);
        give(lastTime, timebase.holdoverValid ? timebase.holdoverTime : 0);
        return hxrNoError;
    });
}

HXRStatus hxrGetGPSState(int handle, int* state) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return state == nullptr ? hxrNullPointerErr : hxr::readGpsState(device, *state, lock);
    });
}

HXRStatus hxrGetGPSInfo(int handle, int refresh, int* updated, uint64_t* seconds, double* latitude,
                        double* longitude, double* altitude) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        hxr::GpsInfo info{};
        const HXRStatus status = hxr::readGpsInfo(device, refresh == 1, info, lock);
        give(updated, info.updated ? 1 : 0);
        give(seconds, info.seconds);
        give(latitude, info.latitude);
        give(longitude, info.longitude);
        give(altitude, info.altitude);
        return status;
    });
}

HXRStatus hxrWriteMessageToGPS(int handle, uint32_t key, uint64_t value, int size) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::writeToGps(device, key, value, size, lock);
    });
}
