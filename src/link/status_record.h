#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace hxr {

/// One status datagram of a unit, and the places of its fields. What a field means is told by `parseStatus`.
///
/// Fields are read byte by byte; bytes beyond the datagram's length are zero.
class StatusRecord {
  public:
    /// Bytes that are kept of a datagram.
    static constexpr std::size_t size = 328;

    /// Offsets from the start of the datagram; 16 bits each where nothing else is said.
    enum Offset : std::size_t {
        readback = 8,   ///< 32 bits
        serial = 12,    ///< 32 bits, most significant byte first
        gpsBlock = 16,  ///< 256 bytes
        supplySense = 272,
        railX5Sense = 274,
        railX1Sense = 276,
        railX2Sense = 278,
        versionA = 280,
        versionB = 282,
        firstTemperature = 284,
        secondTemperature = 286,
        timebase = 288,
        clockStatus = 290,
        thirdTemperature = 294,
        readingB = 296,
        readingA = 298,
        readingQ8 = 300,
        fpgaTemperature = 302,
        flags = 308,     ///< 32 bits
        peerHigh = 312,  ///< the top of the hardware address that the unit answers to
        peerLow = 316,   ///< 32 bits, the rest of it
    };

    static constexpr std::size_t gpsBlockSize = 256;

    /// A record that could not be read: all zero, its magic wrong.
    StatusRecord() = default;

    explicit StatusRecord(std::span<const std::byte> datagram);

    /// Whether this is a whole record: a datagram that ends before its last field is none, whatever it begins
    /// with.
    bool magicIsRight() const;

    std::uint32_t serialNumber() const;

    /// The 48-bit hardware address that the unit answers to.
    std::uint64_t peerAddress() const;

    std::uint16_t u16(std::size_t offset) const;
    std::uint32_t u32(std::size_t offset) const;
    std::span<const std::byte, size> bytes() const { return bytes_; }

    bool operator==(const StatusRecord&) const = default;

  private:
    std::array<std::byte, size> bytes_{};
    std::size_t received_ = 0;
};

}  // namespace hxr
