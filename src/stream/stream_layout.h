/// Which channels of a group stream, unit by unit.
#pragma once

#include <array>

#include "device/channel_settings.h"
#include "device/settings.h"

namespace hxr {

/// Samples of a packet of one channel.
inline constexpr int samplesPerPacket = 2048;

/// Frames that one request asks for: a packet of each streaming channel of a unit is a frame.
inline constexpr int framesPerRequest = 64;

/// Positions of the streaming channels of a group. A unit sends its channels in turn, lowest first.
struct StreamLayout {
    explicit StreamLayout(const ChannelSettings& settings) {
        unitCount = static_cast<std::size_t>(settings.channelCount / words::channelsPerUnit);
        for (std::size_t unit = 0; unit < unitCount; ++unit) {
            firstChannelOfUnit[unit] = channelCount;
            for (std::size_t input = 0; input < words::channelsPerUnit; ++input) {
                const std::size_t channel = unit * words::channelsPerUnit + input;
                if (streams(settings, channel)) groupChannel[channelCount++] = channel;
            }
            channelsOfUnit[unit] = channelCount - firstChannelOfUnit[unit];
        }
        while (clockUnit + 1 < unitCount && !streamsOn(clockUnit)) ++clockUnit;
    }

    bool streamsOn(std::size_t unit) const { return channelsOfUnit[unit] > 0; }

    std::size_t unitCount = 0;
    std::size_t channelCount = 0;                         ///< that stream
    std::array<std::size_t, mostUnits> channelsOfUnit{};  ///< that stream on each unit
    std::array<std::size_t, mostUnits> firstChannelOfUnit{};
    PerChannel<std::size_t> groupChannel{};  ///< of each streaming channel, its number in the group
    std::size_t clockUnit = 0;               ///< the first unit that streams: its packets tell the time
};

}  // namespace hxr
