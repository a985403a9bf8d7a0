/// Acquisition and sweeps.

#include "api/entry.h"
#include "device/initiate.h"
#include "sweep/sweep_engine.h"

using hxr::HXRDevice;
using hxr::InterfaceLock;
using hxr::api::deviceEntry;
using hxr::api::give;

HXRStatus hxrInitiate(int handle) {
    return deviceEntry(handle,
                       [](HXRDevice& device, InterfaceLock& lock) { return hxr::initiate(device, lock); });
}

HXRStatus hxrAbort(int handle) {
    return deviceEntry(handle, [](HXRDevice& device, InterfaceLock& lock) {
        return hxr::abort(device, device.disableLOOnAbort ? hxr::IdleLo::off : hxr::IdleLo::keep, lock);
    });
}

HXRStatus hxrSweepGetParameters(int handle, double* actualRBW, double* actualVBW, double* startFreq,
                                double* binSize, int* sweepSize) {
    return deviceEntry(handle, [&](HXRDevice& device) {
        if (!device.sweepEngine) return hxrInvalidConfigurationErr;
        const hxr::SweepResult& result = device.sweepEngine->result();
        give(actualRBW, result.actualRBW);
        give(actualVBW, result.actualVBW);
        give(startFreq, result.startFreq);
        give(binSize, result.binSize);
        give(sweepSize, result.points);
        return hxrNoError;
    });
}

HXRStatus hxrSweepStart(int handle) {
    return deviceEntry(handle, [](HXRDevice& device) {
        if (!device.sweepEngine) return hxrInvalidConfigurationErr;
        return device.sweepEngine->start();
    });
}

HXRStatus hxrSweepFinish(int handle, float* sweep) {
    return deviceEntry(handle, [&](HXRDevice& device, InterfaceLock& lock) {
        const std::shared_ptr<hxr::SweepEngine> engine = device.sweepEngine;  // an abort may end it meanwhile
        return engine ? engine->finish(sweep, lock) : hxrSweepNotStartedErr;
    });
}

HXRStatus hxrGetSweep(int handle, float* sweep) {
    const HXRStatus started = hxrSweepStart(handle);
    return started < 0 ? started : hxrSweepFinish(handle, sweep);
}
