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
        device.corrections->manualTemp = manual;
        return hxrNoError;
    });
}

HXRStatus hxrAdminSetCorrectionIndex(int handle, int index) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        return hxr::storeWithin(hxr::temperatureIndexLimits, index, device.corrections->manualTempIndex);
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
        hxr::CorrectionState& corrections = *device.corrections;
        corrections.loftOverride = true;
        corrections.loftOverrideI = i;
        corrections.loftOverrideQ = q;
        return hxrNoError;
    });
}

HXRStatus hxrAdminManualLoadCorrections(int handle, const HXRCalData* data) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (data == nullptr) return hxrNullPointerErr;
        hxr::cal::copyChamberSection(*data, *device.corrections->image);
        return hxrNoError;
    });
}
