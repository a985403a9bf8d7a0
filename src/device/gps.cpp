#include "device/gps.h"

#include <atomic>

#include "device/health.h"
#include "device/ubx.h"

namespace hxr {
namespace {

/// `lastStatusTicks` at the last look at any unit's fix.
std::atomic<std::uint64_t> lastSeenStatusTicks = 0;

}  // namespace

HXRStatus readGpsState(HXRDevice& device, int& state, InterfaceLock& lock) {
    const HXRStatus result = refreshStatus(device, lock) ? device.link->lastStatus() : hxrNoError;
    const LastStatus status = device.lastStatus.copy();
    state = !fixOf(status).isGood() ? gpsNoFix : isDisciplined(status) ? gpsDisciplining : gpsFix;
    return result;
}

HXRStatus readGpsInfo(HXRDevice& device, bool refresh, GpsInfo& info, InterfaceLock& lock) {
    const HXRStatus result = refresh && refreshStatus(device, lock) ? device.link->lastStatus() : hxrNoError;
    const LastStatus status = device.lastStatus.copy();
    const GpsFix fix = fixOf(status);
    info = {.updated = lastSeenStatusTicks.exchange(status.lastStatusTicks) != status.lastStatusTicks,
            .seconds = static_cast<std::uint64_t>(fix.time() + 1),
            .latitude = fix.latitudeDegrees(),
            .longitude = fix.longitudeDegrees(),
            .altitude = fix.heightMetres()};
    return result;
}

HXRStatus writeToGps(HXRDevice& device, std::uint32_t key, std::uint64_t value, int size,
                     InterfaceLock& lock) {
    if (size > ubxMostValueBytes) return hxrInvalidParameterErr;
    if (isInitiated(device)) return hxrInvalidConfigurationErr;
    const CommandList list = singlePacket(buildGpsValueMessage(key, value, size));
    const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
    if (!control) return hxrInvalidConfigurationErr;
    const Unlocked traffic(lock);
    return device.link->sendList(control, list) ? hxrNoError : device.link->lastStatus();
}

}  // namespace hxr
