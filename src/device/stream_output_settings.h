/// Where the units of a group send their samples: to this host, or as VRT packets to receivers of their own.
///
/// Destinations reach a unit at once; all else counts from the next initiate on. Channels are numbered over the group,
/// units by their position in it, 0 the master. What is refused changes nothing.
#pragma once

#include <cstdint>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// Leads the streams of a group's units to this host, 0, or to their VRT destinations, 1. Units that do so already are
/// left alone.
/// @return `hxrInvalidConfigurationErr` while initiated, or if somebody owns an endpoint of a unit that is to change; a
///         lost link's status, with the units behind it unchanged
HXRStatus setStreamMode(HXRDevice& device, unsigned mode, InterfaceLock& lock);

/// Moves the data socket of a unit, at both ends, to another port.
///
/// @return `hxrInvalidConfigurationErr` if somebody owns an endpoint of the unit; the same for the control link's port,
///         with the port stored and the unit told all the same
HXRStatus setStreamLocalAddr(HXRDevice& device, int unit, std::uint16_t port, InterfaceLock& lock);

/// Sets where a channel's VRT packets go.
///
/// @param address  IPv4, dotted decimal; not checked
/// @param mac      48-bit hardware address of the destination
/// @return `hxrInvalidConfigurationErr` if somebody owns the data endpoint of the channel's unit or, in VRT mode, its
///         control endpoint; its lost link's status, with the destination stored
/// @throws std::bad_alloc, with nothing changed
HXRStatus setStreamVrtAddr(HXRDevice& device, int channel, const char* address, std::uint16_t port,
                           std::uint64_t mac, InterfaceLock& lock);

/// @param id  0 or more, and not in use by any channel of the group
HXRStatus setStreamVrtChannelID(ChannelSettings& settings, int channel, int id);

/// @param enabled   1: context packets every `interval`; 0: none, and the interval falls back to its default
/// @param interval  3 to 4095
HXRStatus setStreamVrtContext(StreamOutputSettings& settings, int enabled, int interval);

HXRStatus setStreamVrtEndianness(StreamOutputSettings& settings, unsigned endianness);

}  // namespace hxr
