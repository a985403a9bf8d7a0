/// The fan and the low-power state of a group's units.
#pragma once

#include <cstdint>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// The command word for a set point in degrees Celsius.
std::uint32_t fanWord(float degrees, bool on);

/// Switches the fans of an idle group.
/// @return `hxrMultiReceiverErr` on a slave, `hxrInvalidConfigurationErr` while initiated or while somebody owns a
///         control endpoint of the group, a lost link's status
HXRStatus setFanEnabled(HXRDevice& device, bool on, InterfaceLock& lock);

/// Sets the fans of an idle group to the set point or to the nearest limit.
/// @return as `setFanEnabled`; `hxrSettingClamped`; `hxrInvalidParameterErr` for a NaN
HXRStatus setFanSetPoint(HXRDevice& device, float degrees, InterfaceLock& lock);

/// Puts all units of an idle group to rest.
/// @return `hxrInvalidConfigurationErr` as the fan's; the device's link status if a unit's link is lost
HXRStatus setLowPowerState(HXRDevice& device, InterfaceLock& lock);

}  // namespace hxr
