#include "vsg/generator_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <vector>

#include "cal/image.h"
#include "link/udp_device.h"
#include "platform/aligned_memory.h"
#include "rf/shared_lo.h"
#include "sim/synthetic_image.h"
#include "support/sequencer_fixture.h"
#include "support/words_text.h"
#include "vsg/output_level.h"

namespace hxr {
namespace {

using test::registerWords;
using test::Words;

/// Plans of a unit with synthetic corrections, and a unit that runs their words.
class GeneratorPlan : public test::SequencerFixture {
  protected:
    GeneratorPlan() {
        const auto bytes = sim::makeSyntheticImage({.serialNumber = 77});
        std::memcpy(image.get(), bytes.data(), bytes.size());
        for (const std::uint32_t word : buildSharedLoImage(SharedLoVco::tabled)) run({word});
    }

    CommandList plan(double sharedFreq) { return planGenerator(settings, sharedFreq, context, *image); }

    GeneratorSettings settings;
    LoContext context;
    platform::AlignedPointer<HXRCalData> image = platform::makeAligned<HXRCalData>();
};

TEST_F(GeneratorPlan, IndexFollowsTheSharedFrequency) {
    const std::map<double, std::size_t> cases{
        {20e6, 3},    {100e6, 3},           {117'187'499, 3}, {117'187'500, 4}, {1e9, 26},
        {5.6e9, 144}, {5'585'937'500, 144}, {19.99e9, 512},   {20e9, 512},      {100e3, 3}};
    for (const auto& [hz, k] : cases) EXPECT_EQ(generatorIndexFor(hz), k) << hz;
}

TEST_F(GeneratorPlan, LevelTakesAsMuchAttenuationAsItAllows) {
    constexpr float nan = std::numeric_limits<float>::quiet_NaN();
    const std::array<float, 8> table{10, 6, 2, -2, -6, -10, -14, -18},
        holes{10, nan, 2, -2, nan, nan, -14, nan}, nothing{nan, nan, nan, nan, nan, nan, nan, nan},
        noData{1e3, 1e3, 1e3, 1e3, 1e3, 1e3, 1e3, nan};
    struct Case {
        std::array<float, 8> levels;
        float dBm;
        std::uint32_t step;
        double scale;
    };
    const Case cases[] = {
        {table, -80.0F, 7, 3.9716e-4}, {table, -18.5F, 7, 0.472031}, {table, -18.0F, 6, 0.315479},
        {table, -17.9F, 6, 0.319132},  {table, -4.0F, 3, 0.397164},  {table, 9.99F, 0, 0.499425},
        {table, 10.0F, 0, 0.5},        {table, 16.0F, 0, 0.997631},  {table, 20.0F, 0, 1.581139},
        {holes, -20.0F, 6, 0.250594},  {holes, 3.0F, 0, 0.223342},   {nothing, -10.0F, 0, 0.0},
        {noData, 0.0F, 6, 0.0},
    };
    for (const auto& [levels, dBm, step, scale] : cases) {
        const OutputLevel output = outputLevelFor(dBm, levels);
        EXPECT_EQ(output.step, step) << dBm;
        EXPECT_NEAR(output.scale, scale, 1e-5 * scale + 1e-9) << dBm;
    }
}

// What the modulator does to I and Q is told by its errors; the words must be what it makes the pattern of.
TEST_F(GeneratorPlan, WordsAreThePatternAheadOfTheModulatorsErrors) {
    struct Case {
        std::size_t length, played, packets;
        double hz;
        int shiftOfI;
        float scale, amplitude;
    };
    const Case cases[] = {
        {16, 16, 2, 500e6, 0, 0.5F, 1},
        {16, 16, 2, 976'562'499.9, 0, 0.5F, 1},
        {200, 200, 3, 976'562'500, 16, 0.5F, 1},
        {201, 201, 4, 5.7e9, 16, 0.31F, 1},
        {1, 1, 2, 40e6, 0, 1, 1},
        {4096, 4096, 42, 19.9e9, 16, 0.5F, 1},
        {4096, 4096, 42, 200e6, 0, 1, 3},
        {5000, 4096, 42, 2e9, 16, 1.2F, 3},
    };
    std::mt19937 random(3);
    for (const Case& c : cases) {
        std::uniform_real_distribution<float> rail(-c.amplitude, c.amplitude);
        settings.vsgPattern.resize(c.length);
        for (auto& sample : settings.vsgPattern) sample = {rail(random), rail(random)};
        settings.vsgScale = c.scale;
        const CommandList list = plan(c.hz);
        ASSERT_EQ(list.packetCount(), c.packets);
        for (std::size_t p = 0; p < c.packets; ++p) sequencer.runControlPacket(list.packet(p));
        EXPECT_EQ(breaches(), "");
        const std::vector<std::uint32_t> words = sequencer.pattern();
        ASSERT_EQ(words.size(), c.played);

        const std::size_t k = generatorIndexFor(c.hz);
        const double gain = image->vsgGain[k], phase = -image->vsgPhase[k];
        const auto isRounded = [](std::uint32_t word, double value) {
            constexpr double margin = 0.02;  // of single precision, in sixteen bits
            const auto rounded = [&](double shift) {
                return std::floor(std::round(std::clamp(value * 32768 + shift, -32768.0, 32767.0)) / 4);
            };
            const auto code = static_cast<std::int16_t>(static_cast<std::uint16_t>(word));
            return code >= rounded(-margin) && code <= rounded(margin);
        };
        for (std::size_t n = 0; n < c.played; ++n) {
            const auto wanted = std::complex<double>(settings.vsgPattern[n]) * double{c.scale};
            const double i = wanted.real() / gain,
                         q = (wanted.imag() - std::sin(phase) * i) / std::cos(phase);
            EXPECT_TRUE(isRounded(words[n] >> c.shiftOfI, i + 0.5 * image->vsgOffsetI[k]))
                << c.hz << ' ' << n;
            EXPECT_TRUE(isRounded(words[n] >> (16 - c.shiftOfI), q + 0.5 * image->vsgOffsetQ[k]))
                << c.hz << ' ' << n;
        }
    }
}

TEST_F(GeneratorPlan, OfAUnitWithoutGeneratorDataIsTheKnownRunOfWords) {
    cal::buildDummyCorrections(*image);
    settings.vsgPattern.assign(16, {1.0F, 0.0F});
    settings.vsgPattern[1] = {-2.0F, 2.0F};
    LoContext other;
    Words expected = registerWords(0, "2000000F 04101000 10000000 E0001FFF 10000000");
    expected.resize(18, expected.back());
    expected.resize(wordsPerPacket);
    for (const std::uint32_t word : tuneSharedLo(other, 18, 12'023'437'500.0)) expected.push_back(word);
    for (const std::uint32_t word : registerWords(0, "51043F0A 51034808 5106E0A0 51074240 470602AE 4C000000"))
        expected.push_back(word);
    expected.resize(2 * wordsPerPacket);
    EXPECT_EQ(plan(12e9).words(), expected);

    // At a level it plays nothing. Floats of erased flash, NaN, are known as little.
    settings.vsgOutputLevel = 10;
    EXPECT_EQ(plan(900e6).words()[5], 0U);
    std::ranges::fill(cal::bytesOf(*image).subspan(offsetof(HXRCalData, vsgLevel), 0x6060), std::byte{0xFF});
    EXPECT_EQ(plan(900e6).words()[5], 0U);
    settings.vsgOutputLevel = noOutputLevel;
    settings.vsgScale = 0.5F;
    EXPECT_EQ(plan(900e6).words()[5], 0x1000U);
}

}  // namespace
}  // namespace hxr
