/// Operations of the driver as one thread calls them beside the exported entries: with the interface lock and with the
/// endpoints claimed.
#pragma once

#include <mutex>
#include <vector>

#include "device/destinations.h"
#include "device/gps.h"
#include "device/health.h"
#include "device/initiate.h"
#include "device/synthesizer_service.h"
#include "device/timebase.h"
#include "stream/stream_plan.h"

namespace hxr {

inline InterfaceLock& heldInterfaceLock() {
    static std::mutex mutex;
    static InterfaceLock lock(mutex);
    return lock;
}

inline ControlClaim controlOf(HXRDevice& device) { return device.link->claimControl(EndpointOwner::entry); }

inline HXRStatus initiate(HXRDevice& device) { return initiate(device, heldInterfaceLock()); }
inline HXRStatus abort(HXRDevice& device, IdleLo idle) { return abort(device, idle, heldInterfaceLock()); }
inline HXRStatus readGpsState(HXRDevice& device, int& state) {
    return readGpsState(device, state, heldInterfaceLock());
}
inline HXRStatus readGpsInfo(HXRDevice& device, bool refresh, GpsInfo& info) {
    return readGpsInfo(device, refresh, info, heldInterfaceLock());
}
inline HXRStatus writeToGps(HXRDevice& device, std::uint32_t key, std::uint64_t value, int size) {
    return writeToGps(device, key, value, size, heldInterfaceLock());
}
inline HXRStatus setReference(HXRDevice& device, unsigned reference) {
    return setReference(device, reference, heldInterfaceLock());
}
inline HXRStatus setGpsTimebaseUpdate(HXRDevice& device, unsigned on) {
    return setGpsTimebaseUpdate(device, on, heldInterfaceLock());
}
inline HXRStatus setCoarseTune(HXRDevice& device, std::uint16_t value) {
    return setCoarseTune(device, value, heldInterfaceLock());
}
inline HXRStatus readLockFlags(HXRDevice& device, LockFlags& flags) {
    return readLockFlags(device, flags, heldInterfaceLock());
}
inline void requestStatus(HXRDevice& device) {
    requestStatus(device, controlOf(device));
    device.holdoverWriter.flush();
}
inline HXRStatus pushLocalDestinations(HXRDevice& device) {
    return pushLocalDestinations(device, controlOf(device));
}
inline HXRStatus pushVrtDestinations(HXRDevice& device) {
    return pushVrtDestinations(device, controlOf(device));
}
inline HXRStatus reInitChannels(HXRDevice& device) { return reInitChannels(device, controlOf(device)); }
inline HXRStatus initFullBandLos(HXRDevice& device, bool initShared, bool initHigh) {
    return initFullBandLos(device, controlOf(device), initShared, initHigh);
}

/// Plans the stream of a group as an initiate does, and takes the lists as sent.
inline std::vector<StreamLists> planStream(HXRDevice& master) {
    std::vector<UnitToPlan> units;
    for (HXRDevice* unit : groupUnits(master)) {
        StatusRecord record;
        const bool seeds = !unit->link->timeSeeded() && unit->link->readStatus(controlOf(*unit), &record);
        units.push_back({unit->loContext, *unit->corrections, unit->streamPort,
                         seeds ? std::optional(record) : std::nullopt});
        if (seeds) unit->link->noteTimeSeedSent();
    }
    return planStream(static_cast<Settings&>(master), units);
}

}  // namespace hxr
