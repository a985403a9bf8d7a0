#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace hxr::sim {

/// Payload of a data datagram: 2048 complex samples of 16 bits, or a flash page.
inline constexpr std::size_t dataPayloadBytes = 8192;
/// The whole datagram, with a header of five words and a trailer of one.
inline constexpr std::size_t dataDatagramBytes = 8216;
/// Where the payload begins.
inline constexpr std::size_t dataHeaderBytes = 20;

/// Header fields of a VITA-49 signal data packet that change from one to the next.
struct DataHeader {
    std::uint32_t streamId = 0;
    std::uint8_t count = 0;  ///< modulo 16
    std::chrono::system_clock::time_point time;
    std::uint32_t trailer = 0;
};

/// Writes time and stream identifier where packets of all kinds have them: behind the first word of the header.
void putPacketOrigin(std::span<std::uint8_t> packet, std::uint32_t streamId,
                     std::chrono::system_clock::time_point time);

/// Writes header and trailer around the payload of a whole datagram.
void putDataFrame(std::span<std::uint8_t> datagram, const DataHeader& header);

/// Frames a payload of `dataPayloadBytes`.
std::vector<std::uint8_t> makeDataDatagram(const DataHeader& header, std::span<const std::uint8_t> payload);

}  // namespace hxr::sim
