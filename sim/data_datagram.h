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

/// Header fields of a VITA-49 signal data packet that change from one to the next.
struct DataHeader {
    std::uint32_t streamId = 0;
    std::uint8_t count = 0;  ///< modulo 16
    std::chrono::system_clock::time_point time;
    std::uint32_t trailer = 0;
};

/// Frames a payload of `dataPayloadBytes`.
std::vector<std::uint8_t> makeDataDatagram(const DataHeader& header, std::span<const std::uint8_t> payload);

}  // namespace hxr::sim
