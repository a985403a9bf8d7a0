/// Service of synthesizers and timebase.

#include <algorithm>
#include <array>
#include <atomic>

#include "api/entry.h"
#include "device/synthesizer_service.h"
#include "device/timebase.h"
#include "rf/band_plan.h"

using hxr::ControlClaim;
using hxr::HXRDevice;
using hxr::InterfaceLock;
using hxr::api::controlEntry;
using hxr::api::deviceEntry;
using hxr::api::readEntry;

namespace {

std::atomic<bool> loCalMode = false;

}  // namespace

HXRStatus hxrAdminGetLOLockFlags(int handle, int* first, int* second) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        hxr::LockFlags flags{};
        const HXRStatus status = hxr::readLockFlags(device, flags, lock);
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
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        return hxr::setCoarseTune(device, value, lock);
    });
}

HXRStatus hxrAdminInitFullBandLOs(int handle, bool initShared, bool initHigh) {
    return controlEntry(handle, [&](HXRDevice& device, const ControlClaim& control) {
        return hxr::initFullBandLos(device, control, initShared, initHigh);
    });
}

HXRStatus hxrAdminReInitChans(int handle) {
    return controlEntry(handle, [](HXRDevice& device, const ControlClaim& control) {
        return hxr::reInitChannels(device, control);
    });
}

HXRStatus hxrAdminConfigureForCBBReadback(int handle) {
    return controlEntry(handle, [](HXRDevice& device, const ControlClaim& control) {
        return hxr::configureForReadback(device, control);
    });
}

HXRStatus hxrAdminCBBReadback(int handle, bool shared, bool low, int channel, int index, unsigned char& a,
                              unsigned char& b, unsigned char& c) {
    using Kind = hxr::Synthesizer::Kind;
    const hxr::Synthesizer synthesizer{shared ? Kind::shared : low ? Kind::low : Kind::high, channel};
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        if (!hxr::canReadBack(synthesizer, index)) return hxrInvalidParameterErr;
        const ControlClaim control = device.link->claimControl(hxr::EndpointOwner::entry);
        if (!control) return hxrInvalidConfigurationErr;
        const hxr::Unlocked traffic(lock);
        std::array<std::uint8_t, 3> setting{a, b, c};
        const HXRStatus status = hxr::readBackVco(device, control, synthesizer, index, setting);
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
