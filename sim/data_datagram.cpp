#include "sim/data_datagram.h"

#include <algorithm>

#include "sim/byte_order.h"

namespace hxr::sim {

void putPacketOrigin(std::span<std::uint8_t> packet, std::uint32_t streamId,
                     std::chrono::system_clock::time_point time) {
    constexpr std::uint64_t picosecondsPerNanosecond = 1000;
    const auto sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto fraction = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - seconds);
    putBig(packet, 4, 4, streamId);
    putBig(packet, 8, 4, static_cast<std::uint64_t>(seconds.count()));
    putBig(packet, 12, 8, static_cast<std::uint64_t>(fraction.count()) * picosecondsPerNanosecond);
}

void putDataFrame(std::span<std::uint8_t> datagram, const DataHeader& header) {
    constexpr std::uint32_t dataPacket = 1u << 28;
    constexpr std::uint32_t trailerPresent = 1u << 26;
    constexpr std::uint32_t secondsUtc = 1u << 22;
    constexpr std::uint32_t fractionInPicoseconds = 2u << 20;
    constexpr std::uint32_t sizeInWords = dataDatagramBytes / 4;
    const std::uint32_t first = dataPacket | trailerPresent | secondsUtc | fractionInPicoseconds |
                                static_cast<std::uint32_t>(header.count & 15) << 16 | sizeInWords;
    putBig(datagram, 0, 4, first);
    putPacketOrigin(datagram, header.streamId, header.time);
    putBig(datagram, dataHeaderBytes + dataPayloadBytes, 4, header.trailer);
}

std::vector<std::uint8_t> makeDataDatagram(const DataHeader& header, std::span<const std::uint8_t> payload) {
    std::vector<std::uint8_t> bytes(dataDatagramBytes);
    std::copy_n(payload.begin(), dataPayloadBytes, bytes.begin() + dataHeaderBytes);
    putDataFrame(bytes, header);
    return bytes;
}

}  // namespace hxr::sim
