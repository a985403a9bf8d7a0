#pragma once

#include <chrono>
#include <cstdint>
#include <fstream>
#include <span>
#include <string>

#include "sim/endpoint.h"
#include "sim/stream_destination.h"

namespace hxr::sim {

/// A packet capture file of what a unit sends by itself, with the Ethernet and IP headers as the host has set them.
class PacketFile {
  public:
    /// @param from             where the packets come from
    /// @param hardwareAddress  of the unit, 48 bits
    /// @throws std::runtime_error if the file can't be written
    PacketFile(const std::string& path, Endpoint from, std::uint64_t hardwareAddress);

    /// @param context  a context packet, not one of samples
    void write(std::chrono::system_clock::time_point time, const StreamDestination& to,
               std::span<const std::uint8_t> payload, bool context);

  private:
    Endpoint from_;
    std::uint64_t hardwareAddress_;
    std::ofstream file_;
};

}  // namespace hxr::sim
