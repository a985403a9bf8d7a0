#include "sim/packet_file.h"

#include <array>
#include <stdexcept>
#include <vector>

#include "sim/byte_order.h"

namespace hxr::sim {
namespace {

constexpr std::size_t addressBytes = 6, ethernetBytes = 14, ipBytes = 20, udpBytes = 8;
constexpr std::size_t headerBytes = ethernetBytes + ipBytes + udpBytes;

template <std::size_t Size>
void append(std::ofstream& file, const std::array<std::uint32_t, Size>& words) {
    std::array<std::uint8_t, 4 * Size> bytes{};
    for (std::size_t i = 0; i < Size; ++i) putLittle(bytes, 4 * i, 4, words[i]);
    file.write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

}  // namespace

PacketFile::PacketFile(const std::string& path, Endpoint from, std::uint64_t hardwareAddress)
    : from_(from), hardwareAddress_(hardwareAddress), file_(path, std::ios::binary | std::ios::trunc) {
    constexpr std::uint32_t nanosecondFile = 0xA1B23C4D, version = 4u << 16 | 2u, longest = 65535,
                            ethernet = 1;
    append(file_, std::array<std::uint32_t, 6>{nanosecondFile, version, 0, 0, longest, ethernet});
    if (!file_) throw std::runtime_error("can't write " + path);
}

void PacketFile::write(std::chrono::system_clock::time_point time, const StreamDestination& to,
                       std::span<const std::uint8_t> payload, bool context) {
    std::array<std::uint8_t, headerBytes> header{};
    putBig(header, 0, addressBytes, to.hardwareAddress);
    putBig(header, addressBytes, addressBytes, hardwareAddress_);
    constexpr std::uint64_t internetProtocol = 0x0800;
    putBig(header, 2 * addressBytes, 2, internetProtocol);

    const auto ip = std::span(header).subspan<ethernetBytes, ipBytes>();
    putIpHeader(ip, from_.address, to.to.address,
                static_cast<std::uint16_t>(ipBytes + udpBytes + payload.size()));
    putBig(ip, checksumOffset, 2, context ? to.contextChecksum : to.dataChecksum);

    const auto udp = std::span(header).subspan<ethernetBytes + ipBytes>();
    putBig(udp, 0, 2, from_.port);
    putBig(udp, 2, 2, to.to.port);
    putBig(udp, 4, 2, udpBytes + payload.size());

    const auto sinceEpoch = time.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - seconds);
    const auto length = static_cast<std::uint32_t>(header.size() + payload.size());
    append(file_,
           std::array<std::uint32_t, 4>{static_cast<std::uint32_t>(seconds.count()),
                                        static_cast<std::uint32_t>(nanoseconds.count()), length, length});
    file_.write(reinterpret_cast<const char*>(header.data()), header.size());
    file_.write(reinterpret_cast<const char*>(payload.data()), static_cast<std::streamsize>(payload.size()));
    file_.flush();
}

}  // namespace hxr::sim
