/// The generator as the unit's own receivers hear it: level, place and purity of what it plays.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numbers>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "support/swept_air.h"

namespace hxr {
namespace {

using test::Trace;

constexpr double offsetHz = 23'437'500, patternRateHz = 125e6;

class GeneratorInTheAir : public test::SweptAir {
  protected:
    void SetUp() override { unitAt(31); }

    void play(double hz, double dBm) {
        hxrAbort(handle);
        ASSERT_EQ(hxrSetVSGEnabled(handle, 1), hxrNoError);
        ASSERT_EQ(hxrSetSharedFreq(handle, hz), hxrNoError);
        ASSERT_EQ(hxrSetVSGLevel(handle, dBm), hxrNoError);
    }

    /// A sweep that shows what is played, and the modulator's leak and image above it.
    Trace sweepAround(double hz, int attenuator = 3) {
        return sweep({.startHz = std::max(hz - 35e6, 1e5),
                      .stopHz = std::min(hz + 60e6, 20e9),
                      .rbwHz = 30e3,
                      .vbwHz = 30e3,
                      .attenuator = attenuator});
    }

    static float levelAt(const Trace& trace, double hz) { return trace.highest(hz - 2e5, hz + 2e5); }
};

TEST_F(GeneratorInTheAir, CarrierStandsAtTheSharedFrequencyAtItsLevelAndAlone) {
    const auto find = [&](const char* name) {
        constexpr double dBm = -9.5;
        double error = 0, image = -300, leak = -300;
        for (const double hz : {60e6, 499e6, 976'562'499.0, 976'562'500.0, 2.4e9, 5.57e9, 5.6e9, 7.98e9,
                                8.1e9, 12.9e9, 13.1e9, 15.97e9, 15.98e9, 19.9e9}) {
            play(hz, dBm);
            const Trace trace = sweepAround(hz);
            const auto [foundHz, found] = trace.lineNear(hz, 20);
            EXPECT_NEAR(foundHz, hz, trace.binHz);
            error = std::max(error, std::abs(found - dBm));
            leak = std::max<double>(leak, levelAt(trace, hz + offsetHz) - dBm);
            image = std::max<double>(image, levelAt(trace, hz + 2 * offsetHz) - dBm);
        }
        RecordProperty(name,
                       std::to_string(error) + ' ' + std::to_string(image) + ' ' + std::to_string(leak));
        return std::array{error, image, leak};
    };
    const auto [error, image, leak] = find("corrected");
    EXPECT_LT(error, 0.2);
    EXPECT_LT(image, -60);
    EXPECT_LT(leak, -60);
    // A unit whose modulator nobody has measured.
    hxrCloseDevice(handle);
    sim::UnitOptions options;
    options.image = test::imageFor(1, {.modulatorErrors = false});
    options.trueImage = test::imageFor(1);
    unitAt(31, std::move(options));
    const auto untested = find("untested");
    EXPECT_GT(untested[1], -45);
    EXPECT_GT(untested[2], -55);
}

TEST_F(GeneratorInTheAir, LevelsAreTrueFromTheLowestToTheHighest) {
    constexpr double hz = 1.7e9;
    const auto& levels = device(handle).corrections->image->vsgLevel[44];
    // Before a level is set, it is that of the attenuator.
    ASSERT_EQ(hxrSetVSGEnabled(handle, 1), hxrNoError);
    ASSERT_EQ(hxrSetSharedFreq(handle, hz), hxrNoError);
    for (const int step : {0, 3, 7}) {
        hxrAbort(handle);
        ASSERT_EQ(hxrAdminSetVSGAtten(handle, step), hxrNoError);
        EXPECT_NEAR(levelAt(sweepAround(hz, 6), hz), levels[step], 0.2) << step;
    }
    std::vector<double> cases{10, 9.9, -30, -40, -50};
    for (const float level : levels) cases.insert(cases.end(), {level, level - 1.7});
    for (const double dBm : cases) {
        play(hz, dBm);
        EXPECT_NEAR(levelAt(sweepAround(hz, 6), hz), dBm, 0.2);
    }
}

TEST_F(GeneratorInTheAir, ReceiversOfTheWholeGroupHearTheMasters) {
    startUnit();
    ASSERT_EQ(pair(1), hxrNoError);
    for (const double hz : {1.7e9, 9.3e9}) {
        play(hz, -12);
        initiate({.startHz = hz - 10e6, .stopHz = hz + 10e6, .channel = 6, .attenuator = 3});
        // The slave doesn't wait for the master: a status tells that the generator plays.
        clock.advance(std::chrono::seconds(2));
        ASSERT_EQ(hxrGetDeviceDiagnostics(handle, nullptr, nullptr, nullptr), hxrNoError);
        EXPECT_NEAR(levelAt(take(), hz), -12, 0.2);
    }
    hxrAbort(handle);
    ASSERT_EQ(hxrSetVSGEnabled(handle, 0), hxrNoError);
    const Trace trace = sweep({.startHz = 9.29e9, .stopHz = 9.31e9, .channel = 6, .attenuator = 3});
    EXPECT_LT(levelAt(trace, 9.3e9), -80);
}

// By both kinds of way out, below and above an LO of 1 GHz.
TEST_F(GeneratorInTheAir, PatternStandsMirroredAroundTheSharedFrequency) {
    for (const double hz : {700e6, 3.3e9}) {
        for (const int length : {16, 80, 4096}) {
            // Two lines, one half the other, as whole turns of the pattern.
            const double step = patternRateHz / length, upper = std::round(8e6 / step),
                         lower = std::round(-11e6 / step);
            std::vector<std::complex<float>> pattern;
            for (int n = 0; n < length; ++n) {
                const double turn = 2 * std::numbers::pi * n / length;
                pattern.emplace_back(std::polar(0.6, upper * turn) + std::polar(0.3, lower * turn));
            }
            play(hz, -12);
            ASSERT_EQ(hxrSetVSGPattern(handle, pattern.data(), length, 1), hxrNoError);
            const Trace trace = sweepAround(hz);
            EXPECT_NEAR(levelAt(trace, hz - upper * step), -12 + 20 * std::log10(0.6), 0.2) << length;
            EXPECT_NEAR(levelAt(trace, hz - lower * step), -12 + 20 * std::log10(0.3), 0.2) << length;
            EXPECT_LT(levelAt(trace, hz), -12 - 55) << length;
        }
    }
}

TEST_F(GeneratorInTheAir, PlaysBesideASweepAndAStreamAndStopsWithThem) {
    constexpr double hz = 2.2e9;
    play(hz, -15);
    const std::array<int, 4> enabled{1, 1, 0, 0};
    ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), 0), hxrNoError);
    ASSERT_EQ(hxrSetChannelShared(handle, 1, 1), hxrNoError);
    ASSERT_EQ(hxrSetStreamDataType(handle, 1), hxrNoError);
    ASSERT_EQ(hxrSetStreamAtten(handle, 3), hxrNoError);
    ASSERT_EQ(hxrSetSweepAtten(handle, 3), hxrNoError);
    ASSERT_EQ(hxrSetSweepStartStop(handle, hz - 10e6, hz + 10e6), hxrNoError);
    forgetWhatWasSent(*units[0]);
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    EXPECT_NEAR(levelAt(take(), hz), -15, 0.2);

    // The pattern goes out before the sweep and the stream, of which the stream is the last to tune the shared LO.
    constexpr std::uint32_t patternLength = 0x2000000F, capture = 0x12000001, streamStart = 0x0E01137F;
    const auto words = units[0]->recording().words();
    const auto first = std::ranges::find_first_of(words, std::array{patternLength, capture, streamStart});
    EXPECT_EQ(first == words.end() ? 0 : *first, patternLength);
    EXPECT_EQ(std::ranges::count(words, streamStart), 1);

    // The carrier comes to rest in the stream.
    std::vector<std::complex<float>> samples(2000);
    void* buffer = samples.data();
    ASSERT_EQ(hxrStreamRecv(handle, &buffer, 2000, nullptr, 0, nullptr, nullptr, nullptr, 0), hxrNoError);
    const auto sum = std::accumulate(samples.begin() + 1000, samples.end(), std::complex<float>{});
    EXPECT_NEAR(20 * std::log10(std::abs(sum) / 1000), -15, 0.2);

    EXPECT_EQ(hxrAbort(handle), hxrNoError);
    ASSERT_EQ(hxrSetVSGEnabled(handle, 0), hxrNoError);
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    EXPECT_LT(levelAt(take(), hz), -80);
}

}  // namespace
}  // namespace hxr
