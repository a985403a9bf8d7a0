/// Where the units of a group send their samples: to this host, or as VRT packets to receivers of their own.
///
/// Destinations reach a unit at once; all else counts from the next initiate on. Channels are numbered over the group,
/// units by their position in it, 0 the master. What is refused changes nothing.
#pragma once

#include <cstdint>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// @param id  0 or more, and not in use by any channel of the group
HXRStatus setStreamVrtChannelID(ChannelSettings& settings, int channel, int id);

/// @param enabled   1: context packets every `interval`; 0: none, and the interval falls back to its default
/// @param interval  3 to 4095
HXRStatus setStreamVrtContext(StreamOutputSettings& settings, int enabled, int interval);

HXRStatus setStreamVrtEndianness(StreamOutputSettings& settings, unsigned endianness);

}  // namespace hxr
