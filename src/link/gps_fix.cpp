#include "link/gps_fix.h"

#include "platform/clock.h"

namespace hxr {
namespace {

// Where the fix's fields stand in the record.
enum FixOffset : std::size_t {
    year = 32,
    month = 34,
    day = 35,
    hour = 36,
    minute = 37,
    second = 38,
    validity = 39
};

constexpr std::uint8_t dateTimeAndSecondsKnown = 0x07;

}  // namespace

bool GpsFix::timeIsValid() const {
    return (u8(validity) & dateTimeAndSecondsKnown) == dateTimeAndSecondsKnown;
}

std::int64_t GpsFix::time() const {
    return platform::secondsSince1970({u16(year), u8(month), u8(day), u8(hour), u8(minute), u8(second)});
}

std::int64_t GpsFix::date() const {
    return platform::secondsSince1970({u16(year), u8(month), u8(day), 0, 0, 0});
}

std::uint8_t GpsFix::u8(std::size_t recordOffset) const {
    return std::to_integer<std::uint8_t>(block_[recordOffset - StatusRecord::gpsBlock]);
}

std::uint16_t GpsFix::u16(std::size_t recordOffset) const {
    return static_cast<std::uint16_t>(u8(recordOffset) | u8(recordOffset + 1) << 8);
}

}  // namespace hxr
