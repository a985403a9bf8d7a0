/// Service of synthesizers and timebase.

#include <algorithm>

#include "api/entry.h"
#include "device/synthesizer_service.h"
#include "device/timebase.h"
#include "rf/band_plan.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;
using hxr::api::readEntry;

HXRStatus hxrAdminGetLOLockFlags(int handle, int* first, int* second) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        hxr::LockFlags flags{};
        const HXRStatus status = hxr::readLockFlags(device, flags);
        if (first != nullptr) std::ranges::copy(flags.first, first);
        if (second != nullptr) std::ranges::copy(flags.second, second);
        return status;
    });
}

HXRStatus hxrAdminGetCoarseTuneVal(int handle, uint16_t* value) {
    return readEntry(handle, value,
                     [](const HXRDevice& device) { return device.timebase.copy().coarseTune; });
}

HXRStatus hxrAdminSetCoarseTuneVal(int handle, uint16_t value) {
    return deviceEntry(handle, [&](HXRDevice& device) { return hxr::setCoarseTune(device, value); });
}

HXRStatus hxrAdminInitFullBandLOs(int handle, bool initShared, bool initHigh) {
    return deviceEntry(handle,
                       [&](HXRDevice& device) { return hxr::initFullBandLos(device, initShared, initHigh); });
}

HXRStatus hxrAdminReInitChans(int handle) {
    return deviceEntry(handle, [](HXRDevice& device) { return hxr::reInitChannels(device); });
}

HXRStatus hxrAdminSetPreselectorFilter(int band) {
    hxr::useManualBand(band);
    return hxrNoError;
}

HXRStatus hxrAdminSetAutoPreselectorFilter() {
    hxr::useAutomaticBands();
    return hxrNoError;
}
