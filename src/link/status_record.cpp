#include "link/status_record.h"

#include <algorithm>

#include "link/byte_order.h"

namespace hxr {
namespace {

constexpr std::uint32_t statusMagic = 0x52000050;
constexpr std::size_t definedSize = 320;

}  // namespace

StatusRecord::StatusRecord(std::span<const std::byte> datagram) : received_(std::min(datagram.size(), size)) {
    std::copy_n(datagram.begin(), received_, bytes_.begin());
}

bool StatusRecord::magicIsRight() const { return received_ >= definedSize && u32(0) == statusMagic; }

std::uint32_t StatusRecord::serialNumber() const { return reversedBytes(u32(serial)); }

std::uint64_t StatusRecord::peerAddress() const {
    return static_cast<std::uint64_t>(u16(peerHigh)) << 32 | u32(peerLow);
}

std::uint16_t StatusRecord::u16(std::size_t offset) const {
    return static_cast<std::uint16_t>(std::to_integer<unsigned>(bytes_[offset]) |
                                      std::to_integer<unsigned>(bytes_[offset + 1]) << 8);
}

std::uint32_t StatusRecord::u32(std::size_t offset) const {
    return u16(offset) | static_cast<std::uint32_t>(u16(offset + 2)) << 16;
}

}  // namespace hxr
