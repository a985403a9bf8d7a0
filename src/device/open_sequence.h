#pragma once

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// Whether a unit is opened by itself or to be tied into a group.
enum class OpenAs { singleUnit, pairedUnit };

/// Brings a unit that has just been attached from power-on to ready: chips loaded, clocks aligned, fan set, stream
/// destinations known, timebase trimmed, all synthesizers at rest. Takes 800 ms of settling, 840 for a paired unit.
/// Called once; after a failure the device is of no more use.
///
/// @return `hxrNoError`; the link's status; `hxrInvalidConfigurationErr` if control and data port are the same;
///         `hxrDataSyncErr` if the unit's status is none or doesn't come; `hxrADCAlignmentErr` if its converter clocks
///         are not aligned
HXRStatus open(HXRDevice& device, OpenAs as);

}  // namespace hxr
