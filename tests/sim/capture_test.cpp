#include "sim/capture.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "cal/correction_lookup.h"
#include "cal/response_filter.h"
#include "capture_support.h"
#include "sim/sources.h"
#include "support/sequencer_fixture.h"

namespace hxr::sim {
namespace {

using test::decibels;
using test::lineAt;
using test::Samples;
using test::Words;

constexpr std::int64_t someTime = 85'000'000'000'000'123;  // in 2023

struct CaptureTest : test::SequencerFixture {
    CaptureTest() {
        run(test::lowImage(0x41));
        run(test::highImage(0x9));
        run(test::passThrough());
    }

    Samples take(const Scene& scene, std::int64_t first = someTime) {
        const auto settings = sequencer.captureSettings({});
        if (!settings) return {};
        std::vector<std::uint8_t> payload(4 * captureBlock);
        clipped = maker.make(*settings, image, temperature, scene).take(first, payload);
        return test::samplesOf(payload);
    }

    Samples takeTone(double hz, double dbm) {
        Scene scene;
        scene.with<Tone>(hz, dbm);
        return take(scene);
    }

    void useImage(std::vector<std::uint8_t> bytes) {
        image = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
    }

    /// 0 dBm is full scale at 30 degrees.
    UnitCalibration::Image image =
        std::make_shared<const std::vector<std::uint8_t>>(test::plainImage({9, 9, 9, 9, 0, -6, 9}));
    double temperature = 30.0;
    CaptureMaker maker;
    bool clipped = false;
};

/// What passing the two rails on adds to a level: the rails' squares add up.
constexpr double bothRailsDb = 3.0103;

const Words rowZero = {0x930001E0, 0x91000008, 0x9400103F, 0x52000101, 0x5100FF84, 0x41000081,
                       0x04020300, 0,          0x00200000, 0,          0,          0x13000001};
const Words rowOne = {0x930001E0, 0x91000008, 0x9400103F, 0x52000101, 0x5100FF84, 0x41000081,
                      0x04020300, 0,          0x00400000, 0,          0,          0x13000001};
/// LO 156.25 MHz behind the preselector of 143 to 200 MHz.
const Words rowSeven = {0x93000060, 0x91000008, 0x94003214, 0x52000101, 0x5100FF82, 0x41002504,
                        0x410024D0, 0x41001700, 0x41001600, 0x41001028, 0x04020300, 0,
                        0x00300000, 0,          0,          0x13000001};
/// LO 10 GHz on the high path.
const Words stepTwoHundredFiftySix = {0x93004040, 0x91000008, 0x94001020, 0x52000100, 0x5100FFB1, 0x90002B01,
                                      0x900020C1, 0x90001502, 0x90001400, 0x90001120, 0x90001028, 0x04020300,
                                      0,          0x00300000, 0,          0,          0x13000010};

TEST_F(CaptureTest, ToneLandsWhereTheWordsTuneAndAsHighAsItIs) {
    const struct {
        const Words& words;
        double airHz;
        double dbm;
        double samplesHz;
    } cases[] = {
        {test::stepOneHundred, 3'882'812'500.0, -20, 0},
        {test::stepOneHundred, 3'901'000'000.0, -20, 18'187'500.0},
        {test::stepOneHundred, 3'863'500'000.0, -60, -19'312'500.0},
        {stepTwoHundredFiftySix, 9'970'123'456.0, -33.3, -6'439'044.0},
        {stepTwoHundredFiftySix, 9'995'900'000.0, -10, 19'337'500.0},
        {rowSeven, 143'200'000.0, -40, 10'387'500.0},
        {rowZero, 100e3, -30, 15'525'000.0},
        {rowZero, 27.12e6, -30, -11'495'000.0},
        {rowZero, 35e6, -30, -19'375'000.0},
        {rowOne, 42.9e6, -30, -11.65e6},
    };
    for (const auto& test : cases) {
        run(test.words);
        const Samples samples = takeTone(test.airHz, test.dbm);
        EXPECT_NEAR(decibels(std::abs(lineAt(samples, test.samplesHz))), test.dbm + bothRailsDb, 0.02)
            << test.airHz;
        EXPECT_LT(decibels(std::abs(lineAt(samples, test.samplesHz + 700e3))), -98) << test.airHz;
        if (std::abs(test.samplesHz) > 1e6) {
            EXPECT_LT(decibels(std::abs(lineAt(samples, -test.samplesHz))), -98) << test.airHz;
        }
    }
    // Close to 0 Hz the direct path shows both lines of a real signal.
    run(rowZero);
    EXPECT_NEAR(decibels(std::abs(lineAt(takeTone(1e6, -30), 16.625e6))), -30 + bothRailsDb, 0.02);
    EXPECT_EQ(breaches(), "");
}

TEST_F(CaptureTest, LevelFollowsTemperatureAttenuatorAndGainCode) {
    const struct {
        double temperature;
        Words words;
        double db;
    } cases[] = {
        {30, {}, 0},
        {45, {}, 6},
        {37.5, {}, 3},
        {33.75, {}, 1.5},
        {80, {}, -9},
        {30, {0x91000009}, 0.5},
        {30, {0x91000006}, -1},
        {30, {0x93001F63}, -3},
        {30, {0x93001F65}, 0},
    };
    for (const auto& test : cases) {
        run(test::stepOneHundred);
        run(test.words);
        temperature = test.temperature;
        EXPECT_NEAR(decibels(std::abs(lineAt(takeTone(3.88e9, -30), -2'812'500.0))),
                    -30 + bothRailsDb + test.db, 0.02)
            << &test - cases;
    }
}

TEST_F(CaptureTest, AnUntunedChannelHearsNothing) {
    for (const Words& words :
         {Words{0x41000081}, Words{0x94001527}, Words{0x5100FF18}, Words{0x5100FFB1}, test::tapWords({})}) {
        run(test::stepOneHundred);
        run(test::lowImage(0x41));
        run(test::stepOneHundred);
        EXPECT_GT(std::abs(lineAt(takeTone(3.88e9, -30), -2'812'500.0)), 0.01);
        run(words);
        for (const auto& sample : takeTone(3.88e9, -30)) ASSERT_EQ(sample, 0.0) << std::hex << words[0];
    }
    run({0x13000000});
    EXPECT_FALSE(sequencer.captureSettings({}));
}

TEST_F(CaptureTest, WhatLiesOutsideTheCaptureLeavesNoTrace) {
    run(test::stepOneHundred);
    for (const double hz : {3.8576e9, 3.8e9, 3.95e9, 3.93e9, 3.882e9 + 125e6, 1e9}) {
        for (const auto& sample : takeTone(hz, -5)) ASSERT_EQ(sample, 0.0) << hz;
    }
}

TEST_F(CaptureTest, CapturesShareThePhaseOfTheAir) {
    Scene scene;
    scene.with<Tone>(3'884'123'456.7, -10.0).with<WhiteNoise>(-150.0);
    run(test::stepOneHundred);
    const Samples first = take(scene);
    const Samples later = take(scene, someTime + 1000);
    for (std::size_t n = 1000; n < first.size(); ++n)
        ASSERT_NEAR(std::abs(later[n - 1000] - first[n]), 0, 1.5 / 32768) << n;

    // Two channels tuned 5 MHz apart turn against each other by just that.
    const double hz = 3'884'123'456.7 - 3'882'812'500.0;
    const auto apart = [&](std::int64_t time) {
        run(test::stepOneHundred);
        const auto one = lineAt(take(scene, time), hz);
        run({0x04020300, 0xA3D70A3E, 0x003A3D70, 0, 0});
        return lineAt(take(scene, time), hz + 5e6) / one;
    };
    const auto begin = apart(someTime);
    EXPECT_NEAR(std::arg(apart(someTime + 50'000'000) / begin), 0, 1e-3);
    EXPECT_NEAR(std::arg(apart(someTime + 1) / begin), 0.2 * std::numbers::pi, 1e-3);
}

TEST_F(CaptureTest, ClipsAtFullScaleAndSaysSo) {
    run(test::stepOneHundred);
    takeTone(3.88e9, -3.1);
    EXPECT_FALSE(clipped);
    double highest = 0;
    for (const auto& sample : takeTone(3.88e9, 6)) highest = std::max(highest, sample.real());
    EXPECT_TRUE(clipped);
    EXPECT_EQ(highest, 32767.0 / 32768);
}

TEST_F(CaptureTest, TapsWorkOnTheRailsAtTheFrontEndsRate) {
    // Two equal taps, 8 ticks of 125 MHz apart, pass |cos(pi f * 64 ns)| of what is f from the LO.
    constexpr std::array<std::pair<std::size_t, std::int16_t>, 2> taps = {{{27, 16000}, {35, 16000}}};
    run(test::stepOneHundred);
    run(test::tapWords(taps));
    for (const double offsetHz : {-12e6, -5e6, 1e6, 17e6}) {
        const double fromLo = 23'437'500.0 - offsetHz;
        const double gain = std::abs(std::cos(std::numbers::pi * fromLo * 64e-9));
        EXPECT_NEAR(std::abs(lineAt(takeTone(3'882'812'500.0 + offsetHz, -20), offsetHz)),
                    0.1 * std::numbers::sqrt2 * gain, 3e-4)
            << offsetHz;
    }
    // The second rail alone: half of the tone stays, and half comes mirrored from the LO's other side.
    Words words = test::passThrough();
    for (std::uint32_t& word : words) word &= word == words[0] ? ~0u : 0xFFFF0000;
    run(words);
    for (const double hz : {3'906'250'000.0 - 21e6, 3'906'250'000.0 + 21e6}) {
        EXPECT_NEAR(decibels(std::abs(lineAt(takeTone(hz, -20), 2'437'500.0))), -20 + bothRailsDb - 6.02,
                    0.02);
    }
}

TEST_F(CaptureTest, NoiseHasItsDensityOverTheWholeCapture) {
    Scene scene;
    scene.with<WhiteNoise>(-120.0);
    const struct { const Words& words; } cases[] = {{test::stepOneHundred}, {rowZero}};
    for (const auto& test : cases) {
        run(test.words);
        constexpr std::size_t blocks = 40, bands = 16;
        std::array<double, bands> power{};
        for (std::size_t block = 0; block < blocks; ++block) {
            const Samples samples = take(scene, someTime + static_cast<std::int64_t>(block * captureBlock));
            for (std::size_t n = 0; n + bands <= samples.size(); n += bands) {
                const Samples part(samples.begin() + static_cast<std::ptrdiff_t>(n),
                                   samples.begin() + static_cast<std::ptrdiff_t>(n + bands));
                for (std::size_t b = 0; b < bands; ++b) {
                    std::complex<double> sum = 0;
                    for (std::size_t i = 0; i < bands; ++i)
                        sum += part[i] *
                               std::polar(1.0, 2.0 * std::numbers::pi * static_cast<double>(b * i) / bands);
                    power[b] += std::norm(sum) / bands;
                }
            }
        }
        for (std::size_t b = 0; b < bands; ++b) {
            const double mean = power[b] / (blocks * captureBlock / bands);
            EXPECT_NEAR(10 * std::log10(mean), -120 + 10 * std::log10(50e6) + bothRailsDb, 0.3) << b;
        }
    }
}

/// An imperfect unit, and the driver's corrections for it.
struct CorrectedCaptureTest : CaptureTest {
    CorrectedCaptureTest() {
        const auto bytes = makeSyntheticImage({});
        corrections.image = platform::makeAligned<HXRCalData>();
        std::memcpy(corrections.image.get(), bytes.data(), bytes.size());
        useImage(bytes);
        temperature = 41.25;
        updateTemperature(corrections, 41.25F);
    }

    /// Runs a tuning with its corrections. Returns what they add to a level.
    double tune(const Words& words, int k, int responseK) {
        const ResponseFilter filter = buildResponseFilter(corrections, false, 0, 0.0, responseK);
        const auto block = tapBlock(filter.taps);
        Words taps = {test::tapBlockWord};
        taps.insert(taps.end(), block.begin(), block.end());
        taps.insert(taps.end(), 2, 0);
        run(words);
        run(taps);
        const LoftPair loft = lookupLoft(corrections, 0, k);
        run({0x921A8000 + static_cast<std::uint32_t>(loft.i), 0x921B8000 + static_cast<std::uint32_t>(loft.q),
             0x91000000u + lookupGainCode(corrections, 0, k)});
        return lookupGain(corrections, 0, 0, k) + filter.gainDb;
    }

    CorrectionState corrections;
};

TEST_F(CorrectedCaptureTest, CorrectionsMakeLevelsRightAndImagesVanish) {
    const struct {
        const Words& words;
        int k;
        int responseK;
        double loHz;  ///< 0: direct
        double middleHz;
    } cases[] = {
        {test::stepOneHundred, 100, 100, 3'906'250'000, 3'882'812'500},
        {stepTwoHundredFiftySix, 256, 256, 10e9, 9'976'562'500},
        {rowSeven, 5, 5, 156'250'000, 132'812'500},
        {rowOne, 1, 0, 0, 31'250'000},
    };
    constexpr double dbm = -20;
    for (const auto& test : cases) {
        const double gainDb = tune(test.words, test.k, test.responseK);
        double worstImage = -200;
        for (const double offsetHz : {-19.5e6, -15e6, -7.7e6, 100e3, 11e6, 19.5e6}) {
            if (test.middleHz == 31'250'000 && std::abs(offsetHz) > 12e6) continue;
            const double at = test.loHz == 0 ? -offsetHz : offsetHz;
            const auto levelOf = [&](double airHz) {
                // A little noise keeps the converter's steps from swallowing what is weak.
                Scene scene;
                scene.with<Tone>(airHz, dbm).with<WhiteNoise>(-152.0);
                return decibels(std::abs(lineAt(take(scene), at))) + gainDb;
            };
            EXPECT_NEAR(levelOf(test.middleHz + offsetHz), dbm, 0.02) << test.k << " " << offsetHz;
            if (test.loHz == 0) continue;
            const double mirrored = 2 * test.loHz - test.middleHz - offsetHz;
            worstImage = std::max(worstImage, levelOf(mirrored) - dbm);
        }
        if (test.loHz == 0) continue;
        EXPECT_GT(worstImage, -100) << "nothing was measured";
        EXPECT_LT(worstImage, -72) << test.k;
    }
}

TEST_F(CorrectedCaptureTest, WrongCorrectionsShow) {
    const double middle = 3'882'812'500, loHz = 3'906'250'000, offset = -7.7e6, leak = 23'437'500;
    double gainDb = tune(test::stepOneHundred, 100, 100);
    EXPECT_LT(std::abs(lineAt(takeTone(middle, -60), leak)), 1e-5);
    run({0x921A8000, 0x921B8000});
    EXPECT_GT(std::abs(lineAt(takeTone(middle, -60), leak)), 1e-4);
    run(test::passThrough());
    EXPECT_GT(std::abs(lineAt(takeTone(2 * loHz - middle - offset, -30), offset)), 1e-4);

    updateTemperature(corrections, 0.0F);
    gainDb = tune(test::stepOneHundred, 100, 100);
    const double level = decibels(std::abs(lineAt(takeTone(middle + offset, -30), offset))) + gainDb;
    EXPECT_GT(std::abs(level + 30), 0.3);
}

}  // namespace
}  // namespace hxr::sim
