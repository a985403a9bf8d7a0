#include "sim/generator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "capture_support.h"
#include "rf/band_plan.h"
#include "rf/generator_path.h"
#include "rf/shared_lo.h"
#include "support/sequencer_fixture.h"
#include "vsg/generator_plan.h"

namespace hxr::sim {
namespace {

using test::decibels;
using test::lineAt;

struct GeneratorTest : test::SequencerFixture {};

// With the driver's own words, over all its ways out.
TEST_F(GeneratorTest, WorksItsFrequencyOutFromItsSwitchesAndTheSharedSynthesizer) {
    run(test::sharedImage());
    EXPECT_FALSE(sequencer.generatorSettings({}));
    run({0x04011000, 0x00001000, 0, 0, 0, 0});
    LoContext context;
    for (double hz = 45e6; hz < 20e9; hz += 6.1234567e6) {
        const int band = bandForFrequency(static_cast<float>(hz));
        const double loHz = hz + 23'437'500;
        run(tuneSharedLo(context, band, loHz));
        const auto path = buildGeneratorPath(band, loHz, 12);
        run({path.begin(), path.end()});
        const auto settings = sequencer.generatorSettings({});
        ASSERT_TRUE(settings) << hz;
        EXPECT_NEAR(settings->loHz, loHz, 1e-3) << hz;
        EXPECT_EQ(settings->k, generatorIndexFor(hz)) << hz;
        EXPECT_EQ(settings->path.attenuatorStep, 3) << hz;
    }
    EXPECT_EQ(breaches(), "");
    run({0x45002500});  // no LO
    EXPECT_FALSE(sequencer.generatorSettings({}));
}

TEST_F(GeneratorTest, ModulatorTurnsErrorsIntoAnImageAndALeak) {
    struct Case {
        GeneratorCalibration modulator;
        double imageDb, leakDb;  // against a carrier at half of full scale
    };
    const Case cases[] = {
        {{{0, 0, -7}, 1.0, 0.0, 0.0, 0.0}, -200, -200},
        {{{0, 0, -7}, 1.02, 0.0, 0.0, 0.0}, decibels(0.02 / 2), -200},
        {{{0, 0, -7}, 1.0, 0.03, 0.0, 0.0}, decibels(0.03 / 2), -200},
        {{{0, 0, -7}, 1.0, 0.0, 0.003, -0.004}, -200, decibels(0.005)},
    };
    constexpr double loHz = 1.5e9, offsetHz = 23'437'500;
    std::vector<std::uint32_t> iFirst, qFirst;  // a carrier at half of full scale
    for (int n = 0; n < 16; ++n) {
        const auto rail = [&](double turn) {
            return static_cast<std::uint16_t>(std::lround(4096 * std::cos(2 * std::numbers::pi * turn)));
        };
        const std::uint32_t i = rail(3 * n / 16.0), q = rail(3 * n / 16.0 - 0.25);
        iFirst.push_back(q << 16 | i);
        qFirst.push_back(i << 16 | q);
    }
    for (const auto& [modulator, imageDb, leakDb] : cases) {
        for (const auto range : {GeneratorPath::Range::belowOneGHz, GeneratorPath::Range::low}) {
            const auto& pattern = range == GeneratorPath::Range::low ? qFirst : iFirst;
            const auto output =
                generatorOutput({.path = {.on = true, .range = range, .attenuatorStep = 2}, .loHz = loHz},
                                pattern, modulator);
            const auto levelOf = [&](double hz) {
                const auto samples = test::listen(*output, hz, 85'000'000'000'000'123, 4096);
                return decibels(std::abs(lineAt(samples, 0)));
            };
            EXPECT_NEAR(levelOf(loHz - offsetHz), -7, 0.1);
            constexpr double fromWords = -78;  // rounded to 14 bits
            for (const auto& [hz, db] : {std::pair(loHz + offsetHz, imageDb), std::pair(loHz, leakDb)}) {
                if (db > fromWords) {
                    EXPECT_NEAR(levelOf(hz), -7 + db, 0.15);
                } else {
                    EXPECT_LT(levelOf(hz), -7 + fromWords);
                }
            }
        }
    }
}

}  // namespace
}  // namespace hxr::sim
