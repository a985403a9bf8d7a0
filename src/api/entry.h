/// What all exported entries share: the interface lock, the handle check, and the wall that no exception passes.
#pragma once

#include <type_traits>

#include "api/device_table.h"
#include "hxr_api.h"

namespace hxr::api {

/// Runs the body of an entry. What is thrown inside says that the system has no memory left.
template <typename Body>
HXRStatus entry(Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return hxrMemoryAllocationErr;
    }
}

/// Runs the body of an entry with the unit of a handle, under the interface lock. A body that waits for the unit takes the
/// lock as its second argument and gives it back meanwhile.
template <typename Body>
HXRStatus deviceEntry(int handle, Body&& body) noexcept {
    return entry([&] {
        InterfaceLock lock = deviceTable().lock();
        HXRDevice* const device = deviceTable().find(handle);
        if (device == nullptr) return hxrInvalidDeviceErr;
        if constexpr (std::is_invocable_v<Body, HXRDevice&, InterfaceLock&>) {
            return body(*device, lock);
        } else {
            return body(*device);
        }
    });
}

/// As `deviceEntry`, for a body that sends to the unit: it gets the claim of the control endpoint and runs without the
/// interface lock. `hxrInvalidConfigurationErr` if somebody owns the endpoint.
template <typename Body>
HXRStatus controlEntry(int handle, Body&& body) noexcept {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
        if (!control) return hxrInvalidConfigurationErr;
        const Unlocked traffic(lock);
        return body(device, control);
    });
}

/// Gives a value to a caller who may not want it.
template <typename Value>
void give(Value* out, std::type_identity_t<Value> value) {
    if (out != nullptr) *out = value;
}

/// An entry that reads one value of a unit into the caller's variable.
template <typename Value, typename Read>
HXRStatus readEntry(int handle, Value* out, Read&& read) noexcept {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (out == nullptr) return hxrNullPointerErr;
        *out = static_cast<Value>(read(device));
        return hxrNoError;
    });
}

}  // namespace hxr::api
