/// Service of a unit's synthesizers, beside any plan.
#pragma once

#include <array>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// Loads the `highLo` of every channel and switches the channel's synthesizers off, with 20 ms for each.
/// @return `hxrInvalidConfigurationErr` while a sweep has the control endpoint; a lost link's status, the channels
///         behind being left out
HXRStatus reInitChannels(HXRDevice& device);

/// Switches all synthesizers off and loads those that are asked for.
/// @return `hxrInvalidConfigurationErr` while a sweep has the control endpoint; the link's status
HXRStatus initFullBandLos(HXRDevice& device, bool initShared, bool initHigh);

/// The two sets of lock flags, one for each channel, from a new status unless a sweep has the control endpoint.
struct LockFlags {
    std::array<int, words::channelsPerUnit> first, second;
};

/// @return the link's status
HXRStatus readLockFlags(HXRDevice& device, LockFlags& flags);

}  // namespace hxr
