#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "link/status_record.h"

namespace hxr {

/// What the last status record of a unit told, in physical units.
struct LastStatus {
    bool dataSyncFault = false;         ///< the record was none; all but this field is older
    bool adcAlignFault = false;         ///< the converter clocks are not aligned
    std::uint64_t lastStatusTicks = 0;  ///< monotonic milliseconds at the last good record
    std::uint32_t serialNumber = 0;
    std::uint32_t firmwareVersionA = 0, firmwareVersionB = 0;
    float railX2 = 0, railX1 = 0, railX5 = 0, supplyVoltage = 0;                      ///< volts
    float fpgaTemperature = 0, temperatureA = 0, temperatureB = 0, temperatureC = 0;  ///< degrees Celsius
    float readingQ8 = 0, readingA = 0, readingB = 0;
    std::uint32_t timebaseReadback = 0;
    std::uint16_t clockStatus = 0;
    std::uint32_t statusFlags = 0;
    std::array<std::byte, StatusRecord::gpsBlockSize> gpsBlock{};
    bool tempDrifted = false;        ///< `temperatureA` has left `referenceTemperature`
    float referenceTemperature = 0;  ///< `temperatureA` at the last initiate
};

}  // namespace hxr
