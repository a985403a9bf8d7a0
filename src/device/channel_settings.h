/// The channels of a group: which of them sweep and stream, and how each is tuned.
///
/// What is set counts from the next initiate on. Channels are numbered over the group; one that it doesn't have is
/// `hxrInvalidParameterErr`. What is refused changes nothing.
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// The place of a group's channel in records of all channels, nothing if the group doesn't have it.
std::optional<std::size_t> channelIndex(const ChannelSettings& settings, int channel);

/// Whether a channel streams: it is enabled and doesn't sweep.
bool streams(const ChannelSettings& settings, std::size_t channel);

/// Whether a channel takes the group's shared frequency: it streams and was told to.
bool isShared(const ChannelSettings& settings, std::size_t channel);

/// Enables channels: `focus` sweeps, the others stream. A focus that is no enabled channel means that none sweeps.
///
/// @param enabled  a value for each channel of the group, 0 for off
/// @return `hxrInvalidConfigurationErr` while initiated
HXRStatus setChannelConfig(HXRDevice& device, std::span<const int> enabled, int focus);

/// @param shared  1 for the shared frequency, 0 for the channel's own
HXRStatus setChannelShared(ChannelSettings& settings, int channel, unsigned shared);

/// @return `hxrSettingClamped` if a limit was taken; `hxrInvalidParameterErr` for a NaN
HXRStatus setChannelFreq(ChannelSettings& settings, int channel, double hz);
HXRStatus setChannelDelay(ChannelSettings& settings, int channel, double seconds);
HXRStatus setSharedFreq(ChannelSettings& settings, double hz);

/// Stores the negated phase, brought into one turn: 0 up to, not including, 2 pi.
/// @return `hxrInvalidParameterErr` for a phase that isn't finite
HXRStatus setChannelPhaseOffset(ChannelSettings& settings, int channel, double radians);

}  // namespace hxr
