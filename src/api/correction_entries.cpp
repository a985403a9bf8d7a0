/// Service of corrections.

#include "api/entry.h"
#include "cal/image.h"
#include "device/setting_limits.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;
using hxr::api::give;
using hxr::api::readEntry;

HXRStatus hxrAdminSetCorrectionMode(int handle, bool manual) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.overrides.manualTemp = manual;
        return hxrNoError;
    });
}

HXRStatus hxrAdminSetCorrectionIndex(int handle, int index) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        return hxr::storeWithin(hxr::temperatureIndexLimits, index, device.overrides.manualTempIndex);
    });
}

HXRStatus hxrAdminHasPretestCorrections(int handle, bool* has) {
    return readEntry(handle, has, [](const HXRDevice& device) {
        return hxr::cal::hasPretestCorrections(*device.corrections->image);
    });
}

HXRStatus hxrAdminHasChamberCorrections(int handle, bool* has) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        give(has, device.corrections->image->calDate != hxr::cal::absentDate);
        return hxrNoError;
    });
}

HXRStatus hxrAdminSetLOFT(int handle, int i, int q) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.overrides.loftOverride = true;
        device.overrides.loftOverrideI = i;
        device.overrides.loftOverrideQ = q;
        return hxrNoError;
    });
}

HXRStatus hxrAdminManualLoadCorrections(int handle, const HXRCalData* data) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (data == nullptr) return hxrNullPointerErr;
        // Plans and status readers use the image while they own the control endpoint.
        const hxr::ControlClaim control = device.link->claimControl(hxr::EndpointOwner::entry);
        if (!control) return hxrInvalidConfigurationErr;
        hxr::cal::copyChamberSection(*data, *device.corrections->image);
        return hxrNoError;
    });
}
