/// The fan and the low-power state of a group's units.
#pragma once

#include <cstdint>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// The command word for a set point in degrees Celsius.
std::uint32_t fanWord(float degrees, bool on);

/// Switches the fans of an idle group.
/// @return `hxrMultiReceiverErr` on a slave, `hxrInvalidConfigurationErr` while initiated, a lost link's
///         status
HXRStatus setFanEnabled(HXRDevice& device, bool on);

/// Sets the fans of an idle group to the set point or to the nearest limit.
/// @return as `setFanEnabled`; `hxrSettingClamped`; `hxrInvalidParameterErr` for a NaN
HXRStatus setFanSetPoint(HXRDevice& device, float degrees);

/// Puts all units of an idle group to rest.
/// @return `hxrInvalidConfigurationErr` while initiated; the device's link status if a unit's link is lost
HXRStatus setLowPowerState(HXRDevice& device);

}  // namespace hxr
