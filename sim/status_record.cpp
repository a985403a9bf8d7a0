#include "sim/status_record.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "sim/byte_order.h"

namespace hxr::sim {
namespace {

using Bytes = std::span<std::uint8_t>;

std::uint16_t nearestCode(double value, double step) {
    return static_cast<std::uint16_t>(std::clamp(std::round(value / step), 0.0, 65535.0));
}

std::uint32_t scaled(double value, double unitsPerOne) {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(std::llround(value * unitsPerOne)));
}

/// The payload of UBX-NAV-PVT, 92 bytes.
void putFix(Bytes payload, const GpsFix& fix, std::chrono::sys_seconds solutionTime) {
    if (fix.absent) return;
    const auto time = fix.clock == GpsFix::Clock::fixed ? fix.time : solutionTime;
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);

    // The time of week counts from Sunday and is ahead of UTC by the leap seconds since 1980.
    constexpr std::chrono::seconds leapSeconds{18};
    const auto sunday = day - (std::chrono::weekday(day) - std::chrono::Sunday);
    const std::chrono::milliseconds timeOfWeek = (time - sunday + leapSeconds) % std::chrono::weeks{1};

    constexpr std::uint8_t noFix = 0;
    constexpr std::uint8_t fix3d = 3;
    const bool located = fix.satellites > 0;
    constexpr double perDegree = 1e7;
    constexpr double perMetre = 1000.0;
    constexpr double geoidMetres = 47.6;

    putLittle(payload, 0, 4, static_cast<std::uint64_t>(timeOfWeek.count()));
    putLittle(payload, 4, 2, static_cast<std::uint64_t>(static_cast<int>(date.year())));
    putLittle(payload, 6, 1, static_cast<unsigned>(date.month()));
    putLittle(payload, 7, 1, static_cast<unsigned>(date.day()));
    putLittle(payload, 8, 1, static_cast<std::uint64_t>(clock.hours().count()));
    putLittle(payload, 9, 1, static_cast<std::uint64_t>(clock.minutes().count()));
    putLittle(payload, 10, 1, static_cast<std::uint64_t>(clock.seconds().count()));
    putLittle(payload, 11, 1, fix.validity);
    putLittle(payload, 12, 4, fix.timeAccuracyNs);
    putLittle(payload, 20, 1, located ? fix3d : noFix);
    putLittle(payload, 21, 1, located ? 1 : 0);
    putLittle(payload, 23, 1, fix.satellites);
    putLittle(payload, 24, 4, scaled(fix.longitude, perDegree));
    putLittle(payload, 28, 4, scaled(fix.latitude, perDegree));
    putLittle(payload, 32, 4, scaled(fix.heightMetres, perMetre));
    putLittle(payload, 36, 4, scaled(fix.heightMetres - geoidMetres, perMetre));
    putLittle(payload, 40, 4, 1900);  // accuracies in mm, mm/s and degrees x 1e-5, as of a unit at rest
    putLittle(payload, 44, 4, 2600);
    putLittle(payload, 68, 4, 60);
    putLittle(payload, 72, 4, 18'000'000);
    putLittle(payload, 76, 2, 145);
}

std::uint32_t statusFlags(const Health& health, const UnitReport& report) {
    const unsigned first = health.firstLockFlags.value_or(report.firstLockFlags);
    const unsigned second = health.secondLockFlags.value_or(report.secondLockFlags);
    const bool disciplined = health.disciplined.value_or(report.disciplines);
    return (first & 15u) | (second & 15u) << 4 | (disciplined ? 1u << 9 : 0u) |
           ((health.adcOverflow | report.adcOverflow) & 15u) << 12;
}

}  // namespace

GpsFix GpsFix::none() {
    GpsFix fix;
    fix.absent = true;
    return fix;
}

std::uint16_t Oscillator::steered(std::uint16_t dac) const {
    const int distance = trueDac.value_or(dac) - dac;
    return static_cast<std::uint16_t>(dac + std::clamp<int>(distance, -stepPerRecord, stepPerRecord));
}

double Oscillator::frequencyRatio(std::uint16_t dac) const {
    constexpr double perCount = 1e-10;
    return 1.0 + perCount * (dac - trueDac.value_or(dac));
}

std::uint16_t temperatureCode(double degrees) {
    constexpr std::uint16_t negative = 1 << 12;
    constexpr double quarters = 4.0;
    const auto steps = static_cast<int>(std::clamp(std::round(degrees * quarters), -1024.0, 1023.0));
    const int magnitude = steps < 0 ? 1024 + steps : steps;
    return static_cast<std::uint16_t>((steps < 0 ? negative : 0) | magnitude << 2);
}

std::array<std::uint8_t, statusRecordBytes> composeStatusRecord(const Identity& identity,
                                                                const Health& health, const GpsFix& fix,
                                                                const UnitReport& report) {
    constexpr std::uint32_t magic = 0x52000050;
    std::array<std::uint8_t, statusRecordBytes> record{};
    const Bytes bytes(record);

    putLittle(bytes, 0, 4, magic);
    putLittle(bytes, 8, 4, report.readback);
    putBig(bytes, 12, 4, identity.serialNumber);
    putFix(bytes.subspan(28, 92), fix, report.solutionTime);

    putLittle(bytes, 272, 2, nearestCode(health.supplyVolts, 11.0 / 1000.0));
    putLittle(bytes, 274, 2, nearestCode(health.railX5Volts, 5.0 / 1000.0));
    putLittle(bytes, 276, 2, nearestCode(health.railX1Volts, 1.0 / 1000.0));
    putLittle(bytes, 278, 2, nearestCode(health.railX2Volts, 2.0 / 1000.0));
    putLittle(bytes, 280, 2, identity.versionA);
    putLittle(bytes, 282, 2, identity.versionB);
    putLittle(bytes, 284, 2, temperatureCode(health.temperatureA));
    putLittle(bytes, 286, 2, temperatureCode(health.temperatureB));
    putLittle(bytes, 288, 2, health.timebaseReadback.value_or(report.timebaseDac));
    putLittle(bytes, 290, 2, health.clockStatus);
    putLittle(bytes, 294, 2, temperatureCode(health.temperatureC));
    putLittle(bytes, 296, 2, nearestCode(health.readingB, 1.0 / 10000.0));
    putLittle(bytes, 298, 2, nearestCode(health.readingA, 1.0 / 10000.0));
    putLittle(bytes, 300, 2, nearestCode(health.readingQ8, 1.0 / 256.0));
    putLittle(bytes, 302, 2, nearestCode(health.fpgaTemperature + 265.0, 0.6767578125));

    putLittle(bytes, 308, 4, statusFlags(health, report));
    // The unit keeps the address in a 32-bit and a 16-bit register; the half word between them belongs to
    // neither.
    putLittle(bytes, 312, 2, identity.peerHardwareAddress >> 32);
    putLittle(bytes, 314, 2, 0x5A5A);
    putLittle(bytes, 316, 4, identity.peerHardwareAddress);

    for (const auto& [offset, value] : health.rawFields) {
        if (offset + 2 <= record.size()) putLittle(bytes, offset, 2, value);
    }
    return record;
}

}  // namespace hxr::sim
