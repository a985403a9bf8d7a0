#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <functional>

#include "cal/image.h"
#include "device/health.h"
#include "support/installation.h"

namespace hxr {
namespace {

using test::contentOf;
using test::Installation;

constexpr std::size_t pagesOfAWholeImage = 966;
constexpr std::size_t pagesWithACache = 7;

void write(const std::filesystem::path& file, const std::vector<std::uint8_t>& content) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

std::uint32_t calDateOf(int handle) {
    std::uint32_t date = 0;
    EXPECT_EQ(hxrGetCalDate(handle, &date), hxrNoError);
    return date;
}

/// Whether the corrections in use are those of an image.
bool correctionsAreOf(int handle, const std::vector<std::uint8_t>& image) {
    const auto working = cal::bytesOf(*api::deviceTable().find(handle)->corrections->image);
    return std::memcmp(working.data() + 0x80000, image.data() + 0x80000, image.size() - 0x80000) == 0;
}

class Connect : public Installation {};

TEST_F(Connect, GivesIdentityAndHealth) {
    sim::SimulatedUnit& unit = startUnit();
    unit.changeHealth([](sim::Health& health) { health.temperatureB = -0.25; });
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(handle, 0);

    int serial = 0, first = 0, second = 0, third = 0, channels = 0, paired = 0;
    EXPECT_EQ(hxrGetSerialNumber(handle, &serial), hxrNoError);
    EXPECT_EQ(hxrGetFirmwareVersion(handle, &first, &second, &third), hxrNoError);
    EXPECT_EQ(hxrGetChannelCount(handle, &channels), hxrNoError);
    EXPECT_EQ(hxrGetPairedDevices(handle, &paired), hxrNoError);
    EXPECT_EQ(serial, 12345678);
    EXPECT_EQ((std::vector{first, second, third}), (std::vector{21, 21, 7}));
    EXPECT_EQ(channels, 4);
    EXPECT_EQ(paired, 1);
    EXPECT_EQ(calDateOf(handle), sim::SyntheticImageOptions{}.calDate);

    const sim::Health health = unit.health();
    std::array<float, 11> values{};
    EXPECT_EQ(hxrGetFullDeviceDiagnostics(handle, values.data()), hxrNoError);
    const std::array<double, 11> expected{health.supplyVolts,  health.railX2Volts,     health.railX1Volts,
                                          health.railX5Volts,  health.fpgaTemperature, health.temperatureC,
                                          health.temperatureA, health.temperatureB,    health.readingQ8,
                                          health.readingA,     health.readingB};
    // Each value is known to half of its field's resolution.
    const std::array<double, 11> resolution{0.011, 0.002, 0.001, 0.005,  0.68,  0.25,
                                            0.25,  0.25,  0.004, 0.0001, 0.0001};
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_NEAR(values[i], expected[i], 0.51 * resolution[i]) << i;
}

TEST_F(Connect, ReadsTheFlashOnceAndThenItsHeadsOnly) {
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_TRUE(correctionsAreOf(handle, unit.image()));
    EXPECT_EQ(unit.recording().counts().pageReplies, pagesOfAWholeImage);
    for (const auto& [page, times] : unit.recording().pagesServed()) EXPECT_EQ(times, 1U) << page;
    EXPECT_FALSE(unit.state().flashReadMode);
    EXPECT_EQ(hxrCloseDevice(handle), hxrNoError);

    const auto content = contentOf(cacheFile());
    ASSERT_EQ(content.size(), 0x800000U);
    EXPECT_TRUE(std::equal(content.begin() + 0x80000, content.end(), unit.image().begin() + 0x80000));
    EXPECT_TRUE(std::equal(content.begin(), content.begin() + 0x4000, unit.image().begin()));
    EXPECT_TRUE(
        std::equal(content.begin() + 0x40000, content.begin() + 0x48000, unit.image().begin() + 0x40000));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(machineFolder), {}), 1);

    const auto written = std::filesystem::last_write_time(cacheFile());
    forgetWhatWasSent(unit);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(unit.recording().counts().pageReplies, pagesWithACache);
    EXPECT_TRUE(correctionsAreOf(handle, unit.image()));
    EXPECT_EQ(std::filesystem::last_write_time(cacheFile()), written);
}

struct CacheCase {
    const char* name;
    std::uint64_t cachedDate, flashDate;
    std::size_t pages;
    bool cacheIsUsed;
};

class CacheByDate : public Connect, public testing::WithParamInterface<CacheCase> {};

TEST_P(CacheByDate, TheLaterCalibrationWins) {
    const auto cached = test::imageFor(0, {.calDate = GetParam().cachedDate});
    write(cacheFile(), cached);
    sim::UnitOptions options;
    options.image = GetParam().flashDate == 0 ? test::imageFor(0, {.chamber = false})
                                              : test::imageFor(0, {.calDate = GetParam().flashDate});
    sim::SimulatedUnit& unit = startUnit(options);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(unit.recording().counts().pageReplies, GetParam().pages);
    EXPECT_TRUE(correctionsAreOf(handle, GetParam().cacheIsUsed ? cached : options.image));
    EXPECT_EQ(contentOf(cacheFile()) == cached, GetParam().cacheIsUsed);
}

INSTANTIATE_TEST_SUITE_P(Dates, CacheByDate,
                         testing::Values(CacheCase{"OlderCache", 1000, 1001, pagesOfAWholeImage, false},
                                         CacheCase{"EqualDates", 1000, 1000, pagesWithACache, true},
                                         CacheCase{"NewerCache", 1001, 1000, pagesWithACache, true},
                                         CacheCase{"EmptyFlash", 1000, 0, pagesWithACache, true}),
                         [](const auto& test) { return test.param.name; });

TEST_F(Connect, AnEmptyFlashLeavesPlaceholdersAndNoFile) {
    sim::UnitOptions options;
    options.image = sim::makeBlankImage();
    startUnit(options);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_EQ(calDateOf(handle), ~0U);
    EXPECT_EQ(device(handle).corrections->image->gainTable[6][3][6][513], 0.0F);
    EXPECT_EQ(device(handle).corrections->image->fullGridRatio[0][0][0][0], 1.0F);
    EXPECT_FALSE(std::filesystem::exists(cacheFile()));
}

TEST_F(Connect, ABadChecksumIsAWarningOnAWorkingUnit) {
    auto bad = test::imageFor(0, {.goodChecksum = false});
    write(cacheFile(), bad);
    sim::SimulatedUnit& unit = startUnit();
    EXPECT_EQ(connect(), hxrCalChecksumFailed);
    EXPECT_EQ(calDateOf(handle), sim::SyntheticImageOptions{}.calDate);
    EXPECT_EQ(unit.recording().counts().pageReplies, pagesWithACache);
    EXPECT_EQ(contentOf(cacheFile()), bad);
    hxrCloseDevice(handle);

    // The same in the flash: the file is written all the same.
    std::filesystem::remove(cacheFile());
    unit.loadImage(bad);
    EXPECT_EQ(connect(), hxrCalChecksumFailed);
    EXPECT_TRUE(correctionsAreOf(handle, bad));
    EXPECT_TRUE(std::filesystem::exists(cacheFile()));
    hxrCloseDevice(handle);

    // A good flash behind a bad cache doesn't take the warning back.
    unit.loadImage(test::imageFor(0, {.calDate = 1'800'000'000}));
    EXPECT_EQ(connect(), hxrCalChecksumFailed);
    EXPECT_TRUE(correctionsAreOf(handle, unit.image()));
}

TEST_F(Connect, AShortCacheFileIsReplaced) {
    auto shorter = test::imageFor(0, {.calDate = 1'900'000'000});
    shorter.pop_back();
    write(cacheFile(), shorter);
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_TRUE(correctionsAreOf(handle, unit.image()));
    EXPECT_EQ(contentOf(cacheFile()).size(), 0x800000U);
}

TEST_F(Connect, WorksWithSomethingUnreadableInTheCacheFilesPlace) {
    sim::SimulatedUnit& unit = startUnit();
    std::filesystem::create_directories(machineFolder);
    const std::vector<std::function<void()>> obstacles{
        [&] { std::filesystem::create_directory(cacheFile()); },
        [&] { std::filesystem::create_symlink(cacheFile(), cacheFile()); },
        [&] { ASSERT_EQ(::mkfifo(cacheFile().c_str(), 0600), 0); },
    };
    for (const auto& obstacle : obstacles) {
        obstacle();
        forgetWhatWasSent(unit);
        ASSERT_EQ(connect(), hxrNoError);
        EXPECT_TRUE(correctionsAreOf(handle, unit.image()));
        EXPECT_EQ(unit.recording().counts().pageReplies, pagesOfAWholeImage);
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(machineFolder), {}), 1);
        hxrCloseDevice(handle);
        std::filesystem::remove_all(cacheFile());
    }
}

TEST_F(Connect, FallsBackToTheWorkingFolderAndThenToNone) {
    // A file stands where the machine-wide folder should be made.
    write(folder.path() / "shared", {1});
    sim::SimulatedUnit& unit = startUnit();
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_TRUE(std::filesystem::exists(fallbackFolder / "12345678.hxr_adjust"));
    hxrCloseDevice(handle);

    std::filesystem::remove_all(folder.path() / "local");
    write(folder.path() / "local", {1});
    forgetWhatWasSent(unit);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_TRUE(correctionsAreOf(handle, unit.image()));
    EXPECT_EQ(unit.recording().counts().pageReplies, pagesOfAWholeImage);
}

TEST_F(Connect, StampsTheTimeOfAFullyResolvedFixElseTheHosts) {
    constexpr std::uint32_t hostsTime = 1'790'000'000, hostsDay = 1'789'948'800;
    constexpr std::uint32_t fixTime = 1'715'953'327, fixDay = 1'715'904'000;  // 2024-05-17 13:42:07
    sim::SimulatedUnit& unit = startUnit();
    sim::GpsFix fix;
    fix.clock = sim::GpsFix::Clock::fixed;
    clock.setUtcSeconds(hostsTime);

    fix.validity = 7;
    unit.setFix(fix);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_TRUE(device(handle).link->timeSeeded());
    EXPECT_EQ(unit.recording().packets().at(2).content(),
              (std::vector<std::uint32_t>{0x04010005, fixDay, 0, 0, 0, 0, 0x04010007, fixTime}));
    hxrCloseDevice(handle);

    fix.validity = 3;
    unit.setFix(fix);
    ASSERT_EQ(connect(), hxrNoError);
    EXPECT_FALSE(device(handle).link->timeSeeded());
    EXPECT_EQ(unit.state().registers.read(5), hostsDay);
    EXPECT_EQ(unit.state().registers.read(7), hostsTime);
}

TEST_F(Connect, SendsFirstContactWordForWord) {
    using Words = std::vector<std::uint32_t>;
    sim::SimulatedUnit& unit = startUnit();
    unit.setFix(sim::GpsFix::none());
    clock.setUtcSeconds(0x6AB13F80 + 5);
    ASSERT_EQ(connect(), hxrNoError);
    const auto packets = unit.recording().packets();
    ASSERT_GT(packets.size(), 4 + pagesOfAWholeImage);
    const std::vector<Words> head{
        {0x0E000000},
        {0x11000008},
        {0x04010007, 0x6AB13F85, 0, 0, 0, 0, 0x04010005, 0x6AB07380},
        {0x0F000100, 0x1F000001, 0x05000001},
        {0x1E000080, 0x12000001},
    };
    for (std::size_t i = 0; i < head.size(); ++i) EXPECT_EQ(packets[i].content(), head[i]) << i;
    EXPECT_EQ(packets[4 + pagesOfAWholeImage].content(), (Words{0x0F000100, 0x1F000000, 0x05000001}));
}

}  // namespace
}  // namespace hxr
