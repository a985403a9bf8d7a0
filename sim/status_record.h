#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

namespace hxr::sim {

inline constexpr std::size_t statusRecordBytes = 320;

/// What a unit is.
struct Identity {
    std::uint32_t serialNumber = 12345678;
    std::uint16_t versionA = 21;
    std::uint16_t versionB = 7;
    /// Hardware address of the host that the unit answers to, 48 bits.
    std::uint64_t peerHardwareAddress = 0x02005E10A0B1;
};

/// How a unit is, in physical units. Each value goes into the record rounded to the nearest code of its
/// field.
struct Health {
    double supplyVolts = 12.1;
    double railX2Volts = 3.31;
    double railX1Volts = 1.802;
    double railX5Volts = 5.015;
    double temperatureA = 41.25;  ///< degrees Celsius, steps of a quarter degree
    double temperatureB = 39.5;
    double temperatureC = 44.75;
    double fpgaTemperature = 52.4;
    double readingA = 1.2345;
    double readingB = 0.8765;
    double readingQ8 = 17.25;

    std::uint16_t clockStatus = clocksAligned;
    /// LO lock flags, one bit a channel; unset: as the synthesizers stand.
    std::optional<std::uint8_t> firstLockFlags;
    std::optional<std::uint8_t> secondLockFlags;
    std::uint8_t adcOverflow = 0;  ///< one bit an input, beside what captures have found

    /// Whether the unit says that it disciplines its timebase; unset: timebase mode 8 and a good fix.
    std::optional<bool> disciplined;
    /// Reported timebase value; unset: where the DAC stands.
    std::optional<std::uint16_t> timebaseReadback;
    /// Raw 16-bit values by record offset, written last, over whatever stands there.
    std::map<std::size_t, std::uint16_t> rawFields;

    static constexpr std::uint16_t clocksAligned = 0x0F00;
};

/// The last fix of the unit's GPS receiver.
struct GpsFix {
    enum class Clock { followsHost, fixed };

    Clock clock = Clock::followsHost;
    /// UTC of the fix when the clock is fixed.
    std::chrono::sys_seconds time = std::chrono::sys_days{std::chrono::year{2024} / 5 / 17} +
                                    std::chrono::hours{13} + std::chrono::minutes{42} +
                                    std::chrono::seconds{7};
    std::uint8_t validity = 7;  ///< bit 0 date, bit 1 time, bit 2 fully resolved
    std::uint32_t timeAccuracyNs = 28;
    std::uint8_t satellites = 11;
    double longitude = 8.6821267;  ///< degrees, east positive
    double latitude = 50.1109221;  ///< degrees, north positive
    double heightMetres = 157.482;
    /// No message yet: the whole payload is zero.
    bool absent = false;

    static GpsFix none();
    bool good() const { return !absent && (validity & 7) == 7 && satellites > 0 && timeAccuracyNs < 250; }
};

/// The crystal behind the timebase, as the DAC trims it.
struct Oscillator {
    /// DAC value that makes the timebase right; unset: it is right wherever the DAC stands.
    std::optional<std::uint16_t> trueDac;
    /// By how much the unit steers the DAC towards it at most, from one status record to the next.
    std::uint16_t stepPerRecord = 65535;

    /// Where the DAC goes from `dac` in one step.
    std::uint16_t steered(std::uint16_t dac) const;
    /// The timebase's frequency over what it should be, with the DAC at a value: 0.1 ppb a count.
    double frequencyRatio(std::uint16_t dac) const;
};

/// The fields of the record that follow from the commands which the unit has run.
struct UnitReport {
    std::uint16_t timebaseDac = 0;
    bool disciplines = false;
    std::uint8_t firstLockFlags = 0;
    std::uint8_t secondLockFlags = 0;
    /// Inputs whose converters were driven over their range since the last record, one bit each.
    std::uint8_t adcOverflow = 0;
    std::uint32_t readback = 0;  ///< bytes that were latched for this record
    /// UTC for a fix whose clock follows the host.
    std::chrono::sys_seconds solutionTime{};
};

/// Composes the status datagram. What `Health` forces stands before what the unit has to report.
std::array<std::uint8_t, statusRecordBytes> composeStatusRecord(const Identity&, const Health&, const GpsFix&,
                                                                const UnitReport&);

/// The record's 13-bit sign and magnitude code of a temperature, saturating at -256 and 255.75 degrees.
std::uint16_t temperatureCode(double degrees);

}  // namespace hxr::sim
