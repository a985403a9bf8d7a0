/// Where a unit sends its samples: its four destination slots.
#pragma once

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// Points all four slots of a unit at this host.
/// @return the link's status
HXRStatus pushLocalDestinations(HXRDevice& device, const ControlClaim& control);

/// Points the slots of a unit at the VRT destinations of its four inputs, enabled or not.
/// @return the link's status
HXRStatus pushVrtDestinations(HXRDevice& device, const ControlClaim& control);

}  // namespace hxr
