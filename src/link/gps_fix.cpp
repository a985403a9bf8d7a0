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
    validity = 39,
    timeAccuracy = 40,
    satellites = 51,
    longitude = 52,
    latitude = 56,
    height = 60
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

bool GpsFix::isGood() const {
    constexpr std::uint32_t poorAccuracyNs = 250;
    return timeIsValid() && u8(satellites) > 0 && u32(timeAccuracy) < poorAccuracyNs;
}

double GpsFix::latitudeDegrees() const { return static_cast<std::int32_t>(u32(latitude)) / 1e7; }

double GpsFix::longitudeDegrees() const { return static_cast<std::int32_t>(u32(longitude)) / 1e7; }

double GpsFix::heightMetres() const { return static_cast<std::int32_t>(u32(height)) / 1000.0; }

std::uint8_t GpsFix::u8(std::size_t recordOffset) const {
    return std::to_integer<std::uint8_t>(block_[recordOffset - StatusRecord::gpsBlock]);
}

std::uint16_t GpsFix::u16(std::size_t recordOffset) const {
    return static_cast<std::uint16_t>(u8(recordOffset) | u8(recordOffset + 1) << 8);
}

std::uint32_t GpsFix::u32(std::size_t recordOffset) const {
    return u16(recordOffset) | std::uint32_t{u16(recordOffset + 2)} << 16;
}

}  // namespace hxr
