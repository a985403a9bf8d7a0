#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include "sim/status_record.h"

namespace hxr::sim {

/// What a unit knows of itself and tells in its context packets.
struct ContextReport {
    double temperature = 0.0;  ///< degrees Celsius
    std::uint32_t serialNumber = 0;
    GpsFix fix{};
};

/// Length of a VITA-49 context packet of the unit.
inline constexpr std::size_t contextPacketBytes = 112;

/// Of a stream, changing from one context packet to the next.
struct ContextHeader {
    std::uint32_t streamId = 0;
    std::uint8_t count = 0;  ///< modulo 16
    std::chrono::system_clock::time_point time;
};

/// Writes a context packet: the fields as the host has given them, the indicators first, then the unit's own.
void putContextPacket(std::span<std::uint8_t, contextPacketBytes> packet, const ContextHeader& header,
                      std::span<const std::uint32_t> fields, const ContextReport& report);

}  // namespace hxr::sim
