#include "sim/stream_destination.h"

#include <array>

#include "sim/byte_order.h"
#include "sim/unit_state.h"

namespace hxr::sim {
namespace {

constexpr std::uint16_t upperHalf(std::uint32_t word) { return static_cast<std::uint16_t>(word >> 16); }
constexpr std::uint16_t lowerHalf(std::uint32_t word) { return static_cast<std::uint16_t>(word); }

/// The checksum in the IPv4 header of one of the unit's packets.
std::uint16_t headerChecksum(std::uint32_t source, std::uint32_t destination, std::uint16_t totalLength) {
    std::array<std::uint8_t, 20> header{};
    putIpHeader(header, source, destination, totalLength);
    constexpr std::uint32_t allOnes = 0xFFFF;
    std::uint32_t sum = 0;
    for (std::size_t i = 0; i < header.size(); i += 2)
        sum += static_cast<std::uint32_t>(header[i] << 8 | header[i + 1]);
    while (sum > allOnes) sum = (sum & allOnes) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum);
}

}  // namespace

void putIpHeader(std::span<std::uint8_t, 20> header, std::uint32_t source, std::uint32_t destination,
                 std::uint16_t totalLength) {
    constexpr std::uint8_t version4 = 0x45, timeToLive = 16, udp = 17;
    header[0] = version4;
    putBig(header, 2, 2, totalLength);
    header[8] = timeToLive;
    header[9] = udp;
    putBig(header, 12, 4, source);
    putBig(header, 16, 4, destination);
}

bool StreamDestination::checksumsFit(std::uint32_t unitAddress) const {
    constexpr std::uint16_t dataPacketBytes = 8244;
    constexpr std::uint16_t contextPacketBytes = 140;
    return dataChecksum == headerChecksum(unitAddress, to.address, dataPacketBytes) &&
           contextChecksum == headerChecksum(unitAddress, to.address, contextPacketBytes);
}

std::optional<StreamDestination> streamDestination(const RegisterFile& registers, std::size_t slot) {
    std::array<std::uint32_t, StreamDestination::registersEach> words{};
    auto address = static_cast<std::uint16_t>(StreamDestination::firstRegister + slot * words.size());
    for (std::uint32_t& word : words) {
        const auto value = registers.read(address++);
        if (!value) return std::nullopt;
        word = *value;
    }
    return StreamDestination{{words[0], upperHalf(words[1])},
                             std::uint64_t{lowerHalf(words[1])} << 32 | words[2],
                             upperHalf(words[3]),
                             lowerHalf(words[3])};
}

}  // namespace hxr::sim
