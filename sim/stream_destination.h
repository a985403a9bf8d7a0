#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/endpoint.h"

namespace hxr::sim {

class RegisterFile;

/// Where an input's sample packets go. The unit puts the header checksums into its packets as it is told them.
struct StreamDestination {
    static constexpr std::size_t slots = 4;
    static constexpr std::uint16_t firstRegister = 800;
    static constexpr std::uint16_t registersEach = 4;

    Endpoint to{};
    std::uint64_t hardwareAddress = 0;
    std::uint16_t dataChecksum = 0;
    std::uint16_t contextChecksum = 0;

    /// Whether both checksums fit the headers of packets from `unitAddress`.
    bool checksumsFit(std::uint32_t unitAddress) const;
};

/// The header of one of the unit's packets, but for its checksum.
void putIpHeader(std::span<std::uint8_t, 20> header, std::uint32_t source, std::uint32_t destination,
                 std::uint16_t totalLength);
inline constexpr std::size_t checksumOffset = 10;

/// What a slot holds; nothing until all its registers have been written.
///
/// @param slot  0 to 3, by input
std::optional<StreamDestination> streamDestination(const RegisterFile& registers, std::size_t slot);

}  // namespace hxr::sim
