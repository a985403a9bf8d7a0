/// The unit's GPS receiver: what its fixes tell, and what it is told.
#pragma once

#include <cstdint>

#include "device/hxr_device.h"
#include "hxr_api.h"
#include "link/gps_fix.h"

namespace hxr {

/// The unit says that it disciplines its timebase to GPS.
constexpr bool isDisciplined(const LastStatus& status) {
    constexpr std::uint32_t disciplinedFlag = 1U << 9;
    return (status.statusFlags & disciplinedFlag) != 0;
}

inline GpsFix fixOf(const LastStatus& status) { return GpsFix(status.gpsBlock); }

enum GpsState : int { gpsNoFix = 0, gpsFix = 1, gpsDisciplining = 2 };

/// Gives the state of the fix, from a new status unless somebody owns the control endpoint.
/// @return the link's status; `hxrNoError` if no new status was asked for
HXRStatus readGpsState(HXRDevice& device, int& state, InterfaceLock& lock);

/// What a fix tells an application.
struct GpsInfo {
    bool updated;           ///< the status is another one than at the last call, of any unit
    std::uint64_t seconds;  ///< since 1970, UTC: at the next whole second, which the fix announces
    double latitude;        ///< degrees
    double longitude;       ///< degrees
    double altitude;        ///< metres
};

/// @param refresh  as `readGpsState`; otherwise nothing is asked for
HXRStatus readGpsInfo(HXRDevice& device, bool refresh, GpsInfo& info, InterfaceLock& lock);

/// Sends one configuration value to the GPS receiver of an idle unit.
/// @param size  bytes of the value, at most 8
/// @return `hxrInvalidParameterErr`, `hxrInvalidConfigurationErr` while initiated, the link's status
HXRStatus writeToGps(HXRDevice& device, std::uint32_t key, std::uint64_t value, int size,
                     InterfaceLock& lock);

}  // namespace hxr
