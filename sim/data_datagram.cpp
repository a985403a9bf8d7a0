#include "sim/data_datagram.h"

#include <algorithm>

#include "sim/byte_order.h"

namespace hxr::sim {

std::vector<std::uint8_t> makeDataDatagram(const DataHeader& header, std::span<const std::uint8_t> payload) {
    constexpr std::uint32_t dataPacket = 1u << 28;
    constexpr std::uint32_t trailerPresent = 1u << 26;
    constexpr std::uint32_t secondsUtc = 1u << 22;
    constexpr std::uint32_t fractionInPicoseconds = 2u << 20;
    constexpr std::uint32_t sizeInWords = dataDatagramBytes / 4;
    constexpr std::uint64_t picosecondsPerNanosecond = 1000;

    const auto sinceEpoch = header.time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto fraction = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - seconds);
    const std::uint32_t first = dataPacket | trailerPresent | secondsUtc | fractionInPicoseconds |
                                static_cast<std::uint32_t>(header.count & 15) << 16 | sizeInWords;

    std::vector<std::uint8_t> bytes(dataDatagramBytes);
    putBig(bytes, 0, 4, first);
    putBig(bytes, 4, 4, header.streamId);
    putBig(bytes, 8, 4, static_cast<std::uint64_t>(seconds.count()));
    putBig(bytes, 12, 8, static_cast<std::uint64_t>(fraction.count()) * picosecondsPerNanosecond);
    constexpr std::size_t headerBytes = 20;
    std::copy_n(payload.begin(), dataPayloadBytes, bytes.begin() + headerBytes);
    putBig(bytes, headerBytes + dataPayloadBytes, 4, header.trailer);
    return bytes;
}

}  // namespace hxr::sim
