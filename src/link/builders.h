/// Builders append what belongs together to the current packet of a list, under the list's rule for what
/// doesn't fit.
#pragma once

#include <cstdint>
#include <span>

#include "link/command_list.h"

namespace hxr {

/// Writes one register of the unit.
void appendRegister(CommandList& list, std::uint16_t address, std::uint32_t value);

/// Writes a run of 1 to 255 registers, the first at `address`. If the values don't fit, only the opening word
/// stays.
void appendRegisterBlock(CommandList& list, std::uint16_t address, std::span<const std::uint32_t> values);

/// Sets one of the four slots from which the unit builds the headers of its sample packets.
///
/// @param slot         0 to 3
/// @param destination  IPv4 address of the receiving host, dotted decimal; see `addressFromText`
/// @param source       IPv4 address of the unit
/// @param port         UDP port of the receiving host
/// @param peer         48-bit hardware address of the receiving host
void appendStreamDestination(CommandList& list, int slot, const char* destination, const char* source,
                             std::uint16_t port, std::uint64_t peer);

/// Steers the unit's timebase.
///
/// @param reference  0 internal, 1 external
/// @param gpsUpdate  the unit may discipline its timebase to GPS
void appendTimebaseWords(CommandList& list, std::uint16_t dac, std::uint32_t reference, bool gpsUpdate);

/// The channels of a group as the route words need them.
struct ChannelConfig {
    std::span<const bool> channelEnabled;  ///< one flag for each channel of the group
    int focusChannel = -1;                 ///< the channel that sweeps, -1 for none
};

/// Routes the channels of the unit at position `unit` of its group and sets up its sample path.
void appendChannelRoute(CommandList& list, int unit, const ChannelConfig& channels, int hardwareDecimation,
                        bool localStream, bool littleEndian);

/// Reads an IPv4 address, first octet in the top byte. A text with fewer than four parts gives 0; a part
/// above 255 ends the reading, the octets before it keep their places and the rest are 0.
std::uint32_t addressFromText(const char* text);

/// The byte by which a unit knows its place in a group when it is strobed or started: 0 on a unit alone.
///
/// @param position   0 the master, 1 to 3 the slaves
/// @param groupSize  1 to 4
constexpr std::uint8_t groupTimingByte(int position, int groupSize) {
    if (groupSize == 1) return 0;
    return static_cast<std::uint8_t>((10 - 3 * position) * 16 + (position == 0 ? 2 : 4));
}

}  // namespace hxr
