#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "link/status_record.h"

namespace hxr {

/// The unit's last UBX-NAV-PVT message, as it stands in a GPS block.
class GpsFix {
  public:
    explicit GpsFix(std::span<const std::byte, StatusRecord::gpsBlockSize> block) : block_(block) {}

    /// The date and the time of day are known and fully resolved.
    bool timeIsValid() const;

    /// Seconds since 1970, UTC: of the fix, and of the beginning of its day.
    std::int64_t time() const;
    std::int64_t date() const;

    /// Time and place are known well enough to steer a timebase by.
    bool isGood() const;

    double latitudeDegrees() const;
    double longitudeDegrees() const;
    double heightMetres() const;

  private:
    std::uint8_t u8(std::size_t recordOffset) const;
    std::uint16_t u16(std::size_t recordOffset) const;
    std::uint32_t u32(std::size_t recordOffset) const;

    std::span<const std::byte, StatusRecord::gpsBlockSize> block_;
};

}  // namespace hxr
