#include "sim/generator_settings.h"

#include <gtest/gtest.h>

#include "rf/band_plan.h"
#include "rf/generator_path.h"
#include "rf/shared_lo.h"
#include "support/sequencer_fixture.h"
#include "synthesizer_images.h"
#include "vsg/generator_plan.h"

namespace hxr::sim {
namespace {

using GeneratorTest = test::SequencerFixture;

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

}  // namespace
}  // namespace hxr::sim
