/// Service of synthesizers and timebase.

#include <algorithm>
#include <array>
#include <atomic>

#include "api/entry.h"
#include "device/synthesizer_service.h"
#include "device/timebase.h"
#include "rf/band_plan.h"

using hxr::HXRDevice;
using hxr::api::deviceEntry;
using hxr::api::readEntry;

namespace {

std::atomic<bool> loCalMode = false;

}  // namespace

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

HXRStatus hxrAdminConfigureForCBBReadback(int handle) {
    return deviceEntry(handle, [](HXRDevice& device) { return hxr::configureForReadback(device); });
}

HXRStatus hxrAdminCBBReadback(int handle, bool shared, bool low, int channel, int index, unsigned char& a,
                              unsigned char& b, unsigned char& c) {
    using Kind = hxr::Synthesizer::Kind;
    return deviceEntry(handle, [&](HXRDevice& device) {
        std::array<std::uint8_t, 3> setting{a, b, c};
        const Kind kind = shared ? Kind::shared : low ? Kind::low : Kind::high;
        const HXRStatus status = hxr::readBackVco(device, {kind, channel}, index, setting);
        a = setting[0];
        b = setting[1];
        c = setting[2];
        return status;
    });
}

HXRStatus hxrAdminHasCBBData(int handle, bool* has) {
    return readEntry(handle, has, [](const HXRDevice& device) { return device.loContext.cbbLoaded; });
}

HXRStatus hxrAdminSetDisableLOOnAbort(int handle, bool disable) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        device.disableLOOnAbort = disable;
        return hxrNoError;
    });
}

void hxrAdminSetLOCalMode(bool on) noexcept { loCalMode = on; }

bool hxrAdminIsLOCalMode() noexcept { return loCalMode; }

HXRStatus hxrAdminSetPreselectorFilter(int band) {
    hxr::useManualBand(band);
    return hxrNoError;
}

HXRStatus hxrAdminSetAutoPreselectorFilter() {
    hxr::useAutomaticBands();
    return hxrNoError;
}
