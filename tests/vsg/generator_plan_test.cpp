#include "vsg/generator_plan.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <random>
#include <variant>

#include "platform/aligned_memory.h"
#include "rf/shared_lo.h"
#include "sim/decoder.h"
#include "sim/synthetic_image.h"
#include "support/words_text.h"
#include "vsg/output_level.h"

namespace hxr {
namespace {

using test::registerWords;
using test::Words;

constexpr std::uint16_t firstAddress = 4096;

/// A pattern memory as the unit's sequencer fills it.
struct LoadedPattern {
    explicit LoadedPattern(const CommandList& list) {
        for (std::size_t p = 0; p < list.packetCount(); ++p) {
            for (const sim::Operation& operation : sim::decodePacket(list.packet(p))) {
                if (const auto* length = std::get_if<sim::PatternLength>(&operation.action)) {
                    samples = length->lastAddress + std::size_t{1};
                } else if (const auto* block = std::get_if<sim::RegisterBlock>(&operation.action)) {
                    EXPECT_LE(block->values.size(), 100U);
                    std::uint16_t address = block->address;
                    for (const std::uint32_t value : block->values) words[address++] = value;
                    ++blocks;
                } else {
                    EXPECT_EQ(p, list.packetCount() - 1) << "something between the samples";
                }
            }
        }
    }

    int rail(std::size_t sample, int shift) const {
        return static_cast<std::int16_t>(
            static_cast<std::uint16_t>(words.at(static_cast<std::uint16_t>(firstAddress + sample)) >> shift));
    }

    std::size_t samples = 0, blocks = 0;
    std::map<std::uint16_t, std::uint32_t> words;
};

class GeneratorPlan : public testing::Test {
  protected:
    GeneratorPlan() {
        const auto bytes = sim::makeSyntheticImage({.serialNumber = 77});
        std::memcpy(image.get(), bytes.data(), bytes.size());
    }

    /// Makes the modulator right at all frequencies.
    void idealModulator() {
        for (std::size_t k = 0; k < std::size(image->vsgGain); ++k) {
            image->vsgGain[k] = 1.0F;
            image->vsgPhase[k] = image->vsgOffsetI[k] = image->vsgOffsetQ[k] = 0.0F;
        }
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

TEST_F(GeneratorPlan, LevelIsStoredAndDecidesOnlyIfOneIsSet) {
    settings.vsgAtten = 20;
    settings.vsgScale = 0.25F;
    plan(3e9);
    EXPECT_EQ(settings.vsgAtten, 20U);
    EXPECT_EQ(settings.vsgScale, 0.25F);

    const auto pattern = settings.vsgPattern;
    settings.vsgOutputLevel = image->vsgLevel[77][3] - 1.0F;
    plan(3e9);
    EXPECT_EQ(settings.vsgAtten, 12U);
    EXPECT_NEAR(settings.vsgScale, 0.5 * std::pow(10.0, -1.0 / 20), 1e-6);
    EXPECT_EQ(settings.vsgPattern, pattern);
}

// What the modulator does to I and Q is told by its errors; the words must be what it makes the pattern of.
TEST_F(GeneratorPlan, WordsAreThePatternAheadOfTheModulatorsErrors) {
    struct Case {
        std::size_t length, played, blocks;
        double hz;
        bool swapped;
        float scale;
        double amplitude;
    };
    const Case cases[] = {
        {16, 16, 1, 500e6, false, 0.5F, 1.0},        {16, 16, 1, 976'562'499.9, false, 0.5F, 1.0},
        {100, 100, 1, 976'562'500, true, 0.5F, 1.0}, {112, 112, 2, 5.7e9, true, 0.31F, 1.0},
        {1, 1, 1, 40e6, false, 1.0F, 1.0},           {4096, 4096, 41, 19.9e9, true, 0.5F, 1.0},
        {4096, 4096, 41, 200e6, false, 1.0F, 3.0},   {5000, 4096, 41, 2e9, true, 1.2F, 3.0},
    };
    std::mt19937 random(3);
    for (const Case& c : cases) {
        std::uniform_real_distribution<float> rail(static_cast<float>(-c.amplitude),
                                                   static_cast<float>(c.amplitude));
        settings.vsgPattern.resize(c.length);
        for (auto& sample : settings.vsgPattern) sample = {rail(random), rail(random)};
        settings.vsgScale = c.scale;
        const LoadedPattern loaded(plan(c.hz));
        ASSERT_EQ(loaded.samples, c.played);
        ASSERT_EQ(loaded.words.size(), c.played);
        EXPECT_EQ(loaded.words.begin()->first, firstAddress);
        EXPECT_EQ(loaded.blocks, c.blocks);

        const std::size_t k = generatorIndexFor(c.hz);
        const double gain = image->vsgGain[k], phase = -image->vsgPhase[k];
        int clipped = 0;
        for (std::size_t n = 0; n < c.played; ++n) {
            const std::complex<double> wanted =
                std::complex<double>(settings.vsgPattern[n]) * double{c.scale};
            const double i = wanted.real() / gain;
            const double q = (wanted.imag() - std::sin(phase) * i) / std::cos(phase);
            const auto isRounded = [&](int word, double value) {
                constexpr double margin = 0.02;  // of single precision, in sixteen bits
                const auto rounded = [&](double shift) {
                    const double code = std::clamp(value * 32768 + shift, -32768.0, 32767.0);
                    return static_cast<int>(std::floor(std::round(code) / 4));
                };
                clipped += std::abs(value) > 1 ? 1 : 0;
                return word >= rounded(-margin) && word <= rounded(margin);
            };
            const int shift = c.swapped ? 16 : 0;
            EXPECT_TRUE(isRounded(loaded.rail(n, shift), i + 0.5 * image->vsgOffsetI[k])) << c.hz << ' ' << n;
            EXPECT_TRUE(isRounded(loaded.rail(n, 16 - shift), q + 0.5 * image->vsgOffsetQ[k]))
                << c.hz << ' ' << n;
        }
        EXPECT_EQ(clipped > 0, c.amplitude * static_cast<double>(c.scale) > 1) << c.hz;
    }
}

TEST_F(GeneratorPlan, OfARightModulatorIsTheKnownRunOfWords) {
    idealModulator();
    settings.vsgPattern.assign(16, {1.0F, 0.0F});
    settings.vsgPattern[1] = {-2.0F, 2.0F};
    struct Case {
        double hz;
        const char* samples;
        int band;
        const char* way;
    };
    const Case cases[] = {
        {900e6, "1000 1FFFE000 1000", 8, "51043F32 51034800 5106E060 51074240 47060000 4C000000"},
        {976'562'500, "10000000 E0001FFF 10000000", 9,
         "51043F02 51034840 5106E060 51074242 47060000 4C000000"},
        {12e9, "10000000 E0001FFF 10000000", 18, "51043F0A 51034808 5106E0A0 51074240 470602AE 4C000000"},
    };
    for (const Case& c : cases) {
        const CommandList list = plan(c.hz);
        ASSERT_EQ(list.packetCount(), 2U);
        Words expected = registerWords(0, "2000000F 04101000 " + std::string(c.samples));
        expected.resize(18, expected.back());
        Words loaded(list.packet(0).begin(), list.packet(0).begin() + 20);
        expected.resize(20);
        EXPECT_EQ(loaded, expected) << c.hz;

        LoContext other;
        const WordRun tuning = tuneSharedLo(other, c.band, c.hz + 23'437'500);
        expected.assign(tuning.begin(), tuning.end());
        for (const std::uint32_t word : registerWords(0, c.way)) expected.push_back(word);
        loaded.assign(list.packet(1).begin(), list.packet(1).begin() + 29);
        EXPECT_EQ(loaded, expected) << c.hz;
        EXPECT_EQ(list.packet(1)[29], 0U);
    }
}

// Floats of erased flash are NaN. Nothing comes out that the unit doesn't know of.
TEST_F(GeneratorPlan, ErasedCalibrationPlaysNothingAtALevelAndThePatternWithoutOne) {
    std::memset(image->vsgLevel, 0xFF, sizeof image->vsgLevel);
    for (auto* table : {&image->vsgGain, &image->vsgPhase, &image->vsgOffsetI, &image->vsgOffsetQ})
        std::memset(*table, 0xFF, sizeof *table);
    settings.vsgPattern.assign(16, {1.0F, 0.0F});
    EXPECT_EQ(LoadedPattern(plan(500e6)).rail(3, 0), 4096);
    settings.vsgOutputLevel = -10;
    const LoadedPattern silent(plan(500e6));
    for (std::size_t n = 0; n < 16; ++n) EXPECT_EQ(silent.rail(n, 0), 0);
}

}  // namespace
}  // namespace hxr
