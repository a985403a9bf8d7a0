#include "sim/status_record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

namespace hxr::sim {
namespace {

struct Record {
    std::array<std::uint8_t, statusRecordBytes> bytes;

    std::uint32_t at(std::size_t offset, std::size_t width) const {
        std::uint32_t value = 0;
        for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[offset + i];
        return value;
    }
    /// The temperature that a host reads from a code, quarter degrees behind a sign.
    double degrees(std::size_t offset) const {
        const std::uint32_t code = at(offset, 2);
        const int magnitude = static_cast<int>(code >> 2 & 1023);
        return 0.25 * ((code & 1u << 12) == 0 ? magnitude : magnitude - 1024);
    }
};

Record compose(const Health& health, const GpsFix& fix = {}, TimebaseReport timebase = {}) {
    const Identity identity{0x01020304, 513, 1027, 0xA1B2C3D4E5F6};
    return {composeStatusRecord(identity, health, fix, timebase,
                                std::chrono::sys_days{std::chrono::year{2031} / 2 / 3})};
}

TEST(StatusRecord, RoundsTemperaturesToQuartersOnBothSidesOfZero) {
    const struct {
        double given;
        double read;
    } cases[] = {{25.0, 25.0},   {25.1, 25.0},   {25.2, 25.25},    {0.0, 0.0},      {-0.1, 0.0},
                 {-0.25, -0.25}, {-40.5, -40.5}, {255.75, 255.75}, {300.0, 255.75}, {-256.0, -256.0}};
    for (const auto& test : cases) {
        Health health;
        health.temperatureA = test.given;
        health.temperatureB = health.temperatureC = 50.0;
        const Record record = compose(health);
        EXPECT_EQ(record.degrees(284), test.read);
        EXPECT_EQ(record.degrees(286), 50.0);
        EXPECT_EQ(record.degrees(294), 50.0);
    }
    EXPECT_EQ(temperatureCode(-0.25), 0x1000 | 1023 << 2);
    EXPECT_EQ(temperatureCode(25.0), 100 << 2);
}

TEST(StatusRecord, CarriesTheFixAsNavPvtDoes) {
    GpsFix fix;
    fix.clock = GpsFix::Clock::fixed;
    fix.longitude = -122.4194155;
    fix.latitude = -33.8567844;
    fix.heightMetres = -3.5;
    const Record record = compose({}, fix);
    EXPECT_EQ(record.at(32, 2), 2024u);
    EXPECT_EQ(record.at(34, 4), 0x2A0D1105u) << "month, day, hour, minute";
    EXPECT_EQ(record.at(38, 2), 0x0707u) << "second, validity";
    EXPECT_EQ(record.at(40, 4), fix.timeAccuracyNs);
    EXPECT_EQ(record.at(51, 1), fix.satellites);
    EXPECT_EQ(static_cast<std::int32_t>(record.at(52, 4)), -1224194155);
    EXPECT_EQ(static_cast<std::int32_t>(record.at(56, 4)), -338567844);
    EXPECT_EQ(static_cast<std::int32_t>(record.at(60, 4)), -3500);
    // 17 May 2024 was a Friday: five days, 13:42:07 and 18 leap seconds into the week.
    EXPECT_EQ(record.at(28, 4), ((5 * 24 + 13) * 3600u + 42 * 60 + 7 + 18) * 1000);

    const Record moving = compose({}, {});
    EXPECT_EQ(moving.at(32, 4), 0x030207EFu) << "3 February 2031, the host's date";
    const Record none = compose({}, GpsFix::none());
    for (std::size_t offset = 28; offset < 120; ++offset) ASSERT_EQ(none.bytes[offset], 0) << offset;
}

TEST(StatusRecord, TellsFaultsAndDiscipline) {
    Health health;
    health.firstLockFlags = 0b1011;
    health.secondLockFlags = 0b0111;
    health.adcOverflow = 0b0100;
    health.clockStatus = 0x0E00;
    EXPECT_EQ(compose(health).at(308, 4), 0x407Bu);
    EXPECT_EQ(compose(health).at(290, 2), 0x0E00u);
    EXPECT_EQ(compose(health, {}, {0x8123, true}).at(308, 4), 0x427Bu);
    EXPECT_EQ(compose(health, GpsFix::none(), {0x8123, true}).at(308, 4), 0x407Bu)
        << "no discipline without a fix";
    EXPECT_EQ(compose(health, {}, {0x8123, true}).at(288, 2), 0x8123u);

    health.timebaseReadback = 0x4321;
    health.rawFields = {{284, 0xFFFF}, {319, 1}};
    EXPECT_EQ(compose(health, {}, {0x8123, true}).at(288, 2), 0x4321u);
    EXPECT_EQ(compose(health).at(284, 2), 0xFFFFu);
}

}  // namespace
}  // namespace hxr::sim
