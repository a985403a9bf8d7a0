/// Service of a unit's synthesizers, beside any plan.
#pragma once

#include <array>

#include "device/hxr_device.h"
#include "hxr_api.h"
#include "rf/vco_readback.h"

namespace hxr {

/// Loads the `highLo` of every channel and switches the channel's synthesizers off, with 20 ms for each.
/// @return a lost link's status, the channels behind being left out
HXRStatus reInitChannels(HXRDevice& device, const ControlClaim& control);

/// Switches all synthesizers off and loads those that are asked for.
/// @return the link's status
HXRStatus initFullBandLos(HXRDevice& device, const ControlClaim& control, bool initShared, bool initHigh);

/// Brings the unit up anew with a `sharedLo` that finds its VCO settings by itself, and gives it 20 ms.
/// @return the link's status
HXRStatus configureForReadback(HXRDevice& device, const ControlClaim& control);

/// Whether a synthesizer and a point of its table exist: a channel 0 to 3, a point of 0 or more.
bool canReadBack(const Synthesizer& synthesizer, int point);

/// Tunes a synthesizer to a point of its table, lets it find its VCO setting in 32 ms, and reads that back.
///
/// @param setting  the three bytes of the point; as it was after an error
/// @return the link's status; `hxrDataSyncErr` if what came is no status
HXRStatus readBackVco(HXRDevice& device, const ControlClaim& control, const Synthesizer& synthesizer,
                      int point, std::array<std::uint8_t, 3>& setting);

/// The two sets of lock flags, one for each channel.
struct LockFlags {
    std::array<int, words::channelsPerUnit> first, second;
};

/// Gives the lock flags, from a new status unless somebody owns the control endpoint.
/// @return the link's status
HXRStatus readLockFlags(HXRDevice& device, LockFlags& flags, InterfaceLock& lock);

}  // namespace hxr
