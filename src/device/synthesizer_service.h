/// Service of a unit's synthesizers, beside any plan.
#pragma once

#include <array>

#include "device/hxr_device.h"
#include "hxr_api.h"
#include "rf/vco_readback.h"

namespace hxr {

/// Loads the `highLo` of every channel and switches the channel's synthesizers off, with 20 ms for each.
/// @return `hxrInvalidConfigurationErr` while a sweep has the control endpoint; a lost link's status, the channels
///         behind being left out
HXRStatus reInitChannels(HXRDevice& device);

/// Switches all synthesizers off and loads those that are asked for.
/// @return `hxrInvalidConfigurationErr` while a sweep has the control endpoint; the link's status
HXRStatus initFullBandLos(HXRDevice& device, bool initShared, bool initHigh);

/// Brings the unit up anew with a `sharedLo` that finds its VCO settings by itself, and gives it 20 ms.
/// @return `hxrInvalidConfigurationErr` while a sweep has the control endpoint; the link's status
HXRStatus configureForReadback(HXRDevice& device);

/// Tunes a synthesizer to a point of its table, lets it find its VCO setting in 32 ms, and reads that back.
///
/// @param synthesizer  of a channel 0 to 3
/// @param setting      the three bytes of the point; as it was after an error
/// @return `hxrInvalidParameterErr` for a point below 0; `hxrInvalidConfigurationErr` while a sweep has the control
///         endpoint; the link's status; `hxrDataSyncErr` if what came is no status
HXRStatus readBackVco(HXRDevice& device, const Synthesizer& synthesizer, int point,
                      std::array<std::uint8_t, 3>& setting);

/// The two sets of lock flags, one for each channel, from a new status unless a sweep has the control endpoint.
struct LockFlags {
    std::array<int, words::channelsPerUnit> first, second;
};

/// @return the link's status
HXRStatus readLockFlags(HXRDevice& device, LockFlags& flags);

}  // namespace hxr
