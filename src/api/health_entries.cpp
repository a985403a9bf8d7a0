/// Health, fan and low power.

#include "device/health.h"

#include <array>

#include "api/entry.h"
#include "device/fan_and_power.h"

using hxr::HXRDevice;
using hxr::InterfaceLock;
using hxr::api::deviceEntry;
using hxr::api::readEntry;

HXRStatus hxrGetDeviceDiagnostics(int handle, float* supply, float* rail, float* temperature) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        std::array<float, hxr::diagnosticsCount> values{};
        const HXRStatus status = hxr::readDiagnostics(device, values, lock);
        if (status < 0) return status;
        if (supply != nullptr) *supply = values[0];
        if (rail != nullptr) *rail = values[1];
        if (temperature != nullptr) *temperature = values[4];
        return status;
    });
}

HXRStatus hxrGetFullDeviceDiagnostics(int handle, float* diagnostics) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        if (diagnostics == nullptr) return hxrNullPointerErr;
        return hxr::readDiagnostics(
            device, std::span<float, hxr::diagnosticsCount>(diagnostics, hxr::diagnosticsCount), lock);
    });
}

HXRStatus hxrSetLowPowerState(int handle) {
    return deviceEntry(
        handle, [](HXRDevice& device, InterfaceLock& lock) { return hxr::setLowPowerState(device, lock); });
}

HXRStatus hxrSetFanEnabled(int handle, unsigned on) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::setFanEnabled(device, on == 1, lock);
    });
}

HXRStatus hxrGetFanEnabled(int handle, unsigned* on) {
    return readEntry(handle, on, [](const HXRDevice& device) { return device.fanEnabled; });
}

HXRStatus hxrSetFanSetPoint(int handle, float degrees) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::setFanSetPoint(device, degrees, lock);
    });
}

HXRStatus hxrGetFanSetPoint(int handle, float* degrees) {
    return readEntry(handle, degrees, [](const HXRDevice& device) { return device.fanSetPoint; });
}
