#include "rf/shared_lo.h"

#include <gtest/gtest.h>

#include <cmath>

#include "rf/generator_path.h"
#include "rf/ratio_table.h"
#include "rf/rest_words.h"
#include "support/words_text.h"

namespace hxr {
namespace {

using test::joined;
using test::registerWords;
using test::Words;

const char* const tabledRegisters =
    "00=99 00=18 7C=00 73=00 72=32 71=60 70=03 6F=00 6E=00 52=F4 47=C0 41=28 40=50 3F=80 3E=0C 3D=00 3A=55 "
    "39=07 38=12 "
    "37=AF 36=30 35=4C 34=3E 33=0C 32=04 31=A7 30=3F 2F=0A 2E=0A 2D=0A 2C=24 2B=01 2A=00 28=03 27=C5 26=32 "
    "25=0E 24=A0 "
    "23=02 22=00 20=18 1F=01 1E=A8 1D=00 1C=00 1B=00 1A=03 19=E8 18=00 17=00 16=00 15=00 14=00 12=00 11=00 "
    "10=64";
const char* const readBackRegisters =
    "00=99 00=18 7C=00 73=00 72=32 71=60 70=03 6F=00 6E=00 52=F4 47=C0 41=28 40=50 3F=80 3E=0C 3D=00 3A=55 "
    "39=07 38=00 "
    "37=00 36=30 35=4C 34=9E 33=0C 32=04 31=A7 30=3F 2F=0A 2E=0A 2D=0A 2C=24 2B=00 2A=00 28=03 27=C5 26=32 "
    "25=0E 24=80 "
    "23=02 22=00 20=10 1F=01 1E=18 1D=00 1C=00 1B=00 1A=03 19=E8 18=00 17=00 16=80 15=00 14=00 12=40 11=00 "
    "10=28";

TEST(SharedLo, ImageAndBringUpAreTheUnitsLists) {
    for (const bool readBack : {false, true}) {
        const SharedLoVco vco = readBack ? SharedLoVco::readBack : SharedLoVco::tabled;
        const Words image =
            joined({{0x49040C03, 0x49040BFF, 1},
                    registerWords(0x45000000, readBack ? readBackRegisters : tabledRegisters)});
        EXPECT_EQ(image.size(), 59U);
        EXPECT_EQ(buildSharedLoImage(vco), image);
        const Words bringUp = joined({{0x5103FFD0, 0x5104FF07, 0x5106FF72, 0x5107FF24, 0x4C000000},
                                      image,
                                      {0x51071000, 0xB300C1E0, 0xB1000000, 0xB4000018, 0xF300C1E0, 0xF1000000,
                                       0xF4000018, 0x4C000000, 0x05004000, 0, 0},
                                      image,
                                      {0x4B189000, 0x0B0C9000}});
        EXPECT_EQ(bringUp.size(), 136U);
        EXPECT_EQ(buildSharedLoBringUp(vco), bringUp);
    }
}

TEST(SharedLo, OneGigahertzInBandNineIsTheKnownTuning) {
    LoContext context;
    EXPECT_EQ(
        tuneSharedLo(context, 9, 1e9),
        (Words{0x45007003, 0x45003889, 0x45003720, 0x4500251C, 0x450024B0, 0x45001E90, 0x450010B8, 1,
               1,          0x4D000440, 0x4D00161C, 1,          0x4901AB0B, 0x4901AA21, 0x4901A964, 0x4901A82C,
               0x4901A785, 0x4901A691, 0x49000501, 1,          0x45007003, 0x5103A181, 0x51061010}));
    EXPECT_NEAR(context.ddsMHz, 43.478260869565, 1e-9);
    EXPECT_FALSE(context.offsetAboveRef);
    EXPECT_TRUE(context.mainAboveOffset);
    EXPECT_TRUE(context.aboveTwelveGHz);
    EXPECT_EQ(context.mainDivider, 184U);
    EXPECT_EQ(context.pumpCode, 9);

    // Band 0 takes the same whatever it is asked for.
    EXPECT_EQ(tuneSharedLo(context, 0, 39.0625e6), tuneSharedLo(context, 9, 1e9));
    EXPECT_EQ(takeSharedLoFromMaster(), (Words{0x45000081, 0x51048080}));
}

// One tuning for each of the other cores of the VCO, on both sides of the reference and of 12 GHz.
TEST(SharedLo, EveryCoreHasItsKnownTuning) {
    struct Case {
        int band;
        double hz;
        Words words;
    };
    const Case cases[] = {
        {13, 2.01e9, {0x450070E3, 0x45003813, 0x450037B5, 0x4500251E, 0x45002490, 0x45001E80,
                      0x45001054, 1,          1,          0x4D000440, 0x4D00161C, 1,
                      0x4901AB0A, 0x4901AAF8, 0x4901A9AF, 0x4901A88A, 0x4901A7F8, 0x4901A6B0,
                      0x49000501, 1,          0x450070E3, 0x5103A180, 0x51061010}},
        {12, 1.6e9, {0x45007043, 0x45003848, 0x4500374B, 0x4500251D, 0x450024A0, 0x45001E70,
                     0x4500103C, 1,          1,          0x4D000440, 0x4D00161B, 1,
                     0x4901AB0A, 0x4901AA3D, 0x4901A970, 0x4901A8A3, 0x4901A7D7, 0x4901A60A,
                     0x49000501, 1,          0x45007043, 0x5103A181, 0x51061010}},
        {19, 19e9, {0x450070A3, 0x45003823, 0x450037C5, 0x4500251E, 0x450024B0, 0x45001EA8,
                    0x45001032, 1,          1,          0x4D000440, 0x4D00161D, 1,
                    0x4901AB0B, 0x4901AA85, 0x4901A91E, 0x4901A8B8, 0x4901A751, 0x4901A6EC,
                    0x49000501, 1,          0x450070A3, 0x5103A120, 0x51061000}},
        {10, 1.4e9, {0x45007083, 0x4500382A, 0x45003715, 0x4500251D, 0x450024A0, 0x45001E78,
                     0x45001036, 1,          1,          0x4D000440, 0x4D00161E, 1,
                     0x4901AB09, 0x4901AA7B, 0x4901A942, 0x4901A85E, 0x4901A7D0, 0x4901A698,
                     0x49000501, 1,          0x45007083, 0x5103A120, 0x51061000}},
    };
    for (const auto& [band, hz, words] : cases) {
        LoContext context;
        EXPECT_EQ(tuneSharedLo(context, band, hz), words) << hz;
    }
}

TEST(SharedLo, OutputDividerFilterAndBandCodeFollowTheirEdges) {
    struct Case {
        int band;
        double hz;
        unsigned filter, exponent, bandCode;
    };
    const Case cases[] = {
        {1, 62.5e6 + 1, 0, 6, 227}, {1, 125e6, 0, 6, 3},      {5, 250e6, 0, 5, 3},
        {5, 250e6 + 1, 0, 4, 227},  {7, 500e6, 0, 4, 3},      {9, 1e9, 0, 3, 3},
        {9, 1.05e9, 1, 2, 195},     {12, 1.75e9, 2, 2, 35},   {13, 2e9, 2, 2, 3},
        {13, 2.85e9, 2, 1, 131},    {14, 2.851e9, 1, 1, 131}, {15, 4e9, 1, 1, 3},
        {16, 4.2e9, 1, 0, 195},     {16, 4.85e9, 1, 0, 163},  {16, 5e9, 2, 0, 131},
        {16, 5.75e9, 2, 0, 99},     {15, 3.05e9, 1, 1, 67},   {15, 3.425e9, 1, 1, 35},
        {15, 3.625e9, 1, 1, 3},     {18, 10e9, 2, 3, 131},    {19, 20e9, 2, 3, 131},
        {17, 5.6e9, 2, 4, 131},
    };
    for (const auto& [band, hz, filter, exponent, bandCode] : cases) {
        LoContext context;
        const Words words = tuneSharedLo(context, band, hz);
        EXPECT_EQ(words[3], 0x4500251C + filter) << hz;
        EXPECT_EQ(words[4], 0x45002480 + exponent * 16) << hz;
        EXPECT_EQ(words[0], 0x45007000 + bandCode) << hz;
    }
}

TEST(SharedLo, WholeRangeKeepsDdsAndPumpInTheirRanges) {
    LoContext context;
    double lowest = 1e9, highest = 0;
    for (int step = 80'000; step <= 160'000; ++step) {
        // On the low path a channel's LO is the output of a VCO at twice its frequency.
        const Words words = tuneSharedLo(context, 16, step * 100e3 / 2);
        lowest = std::min(lowest, context.ddsMHz);
        highest = std::max(highest, context.ddsMHz);
        const bool pumpFits = context.pumpCode >= 3 && context.pumpCode <= 15;
        const bool dividerFits = context.mainDivider >= 34 && context.mainDivider <= 184;
        ASSERT_TRUE(pumpFits && dividerFits) << step << ' ' << context.pumpCode << ' ' << context.mainDivider;
        ASSERT_EQ(words[21],
                  0x5103A100U + (context.offsetAboveRef ? 0x20 : 0x80) + (context.aboveTwelveGHz ? 1 : 0));
        ASSERT_EQ(words[22], context.offsetAboveRef ? 0x51061000U : 0x51061010U);

        std::uint64_t dds = 0;
        for (int i = 12; i < 18; ++i) dds = dds << 8 | (words[static_cast<std::size_t>(i)] & 0xFF);
        ASSERT_EQ(dds, static_cast<std::uint64_t>(std::llround(context.ddsMHz * 281474976710.656))) << step;
    }
    EXPECT_GT(lowest, 35.6);
    EXPECT_LT(highest, 50);
}

TEST(SharedLo, TablesHoldTheInstrumentsKnownValues) {
    const std::pair<std::size_t, int> ratios[] = {{0, 92},   {3, 92},    {4, 88},     {7, 88},    {8, 84},
                                                  {12, 84},  {56, 58},   {57, 60},    {58, 60},   {175, 104},
                                                  {295, 35}, {512, 115}, {1024, 144}, {2048, 184}};
    for (const auto& [index, ratio] : ratios) EXPECT_EQ(ratioTable[index], ratio) << index;
    const auto [least, most] = std::minmax_element(ratioTable.begin(), ratioTable.end());
    EXPECT_EQ(*least, 34);
    EXPECT_EQ(*most, 184);

    struct Row {
        std::size_t index;
        std::uint32_t core, band;
        std::int32_t bias;
    };
    const LoContext context;
    for (const auto& [index, core, band, bias] : {Row{0, 1, 186, 3}, Row{100, 2, 189, 4}, Row{200, 2, 26, 10},
                                                  Row{400, 8, 166, 4}, Row{512, 8, 32, 9}}) {
        const SharedVcoRow& row = context.sharedVcoTable[index];
        EXPECT_TRUE(row.core == core && row.band == band && row.bias == bias) << index;
    }
    for (const SharedVcoRow& row : context.sharedVcoTable) {
        const std::uint32_t core = row.index < 90 ? 1 : row.index < 221 ? 2 : row.index < 366 ? 4 : 8;
        EXPECT_TRUE(row.core == core && row.band <= 255 && row.bias >= 0 && row.bias <= 10) << row.index;
    }
}

TEST(SharedLo, GeneratorPathFollowsItsLo) {
    struct Case {
        int band;
        double hz;
        int attenuatorCode;
        Words words;
    };
    const Case cases[] = {
        {9, 999e6, 8, {0x51043F32, 0x51034800, 0x5106E060, 0x51074240, 0x47060000}},
        {9, 1e9, 28, {0x51043F07, 0x51034840, 0x5106E060, 0x51074242, 0x47060000}},
        {17, 8e9, 0, {0x51043F08, 0x51034808, 0x5106E0A0, 0x51074200, 0x470602AE}},
        {17, 8.1e9, 4, {0x51043F09, 0x51034808, 0x5106E0A0, 0x51074240, 0x470602AE}},
        {18, 13e9, 0, {0x51043F08, 0x51034808, 0x5106E0A0, 0x51074200, 0x470602AE}},
        {19, 16e9, 0, {0x51043F08, 0x51034808, 0x5106E0A0, 0x51074200, 0x470602B6}},
        {19, 16.1e9, 0, {0x51043F08, 0x51034808, 0x5106E0A0, 0x51074240, 0x470602B6}},
    };
    for (const Case& c : cases) {
        const auto words = buildGeneratorPath(c.band, c.hz, c.attenuatorCode);
        EXPECT_EQ(Words(words.begin(), words.end()), c.words) << c.hz;
    }
}

TEST(SharedLo, SwitchingOffLosesEveryLowLosImage) {
    LoContext context;
    context.lowLoReady.fill(true);
    const auto words = buildLoOff(context);
    EXPECT_EQ(Words(words.begin(), words.end()),
              (Words{0x45002500, 0x90002B83, 0x41000081, 0x90002B83, 0xA0002B83, 0x42000081, 0xA0002B83,
                     0xD0002B83, 0x43000081, 0xD0002B83, 0xE0002B83, 0x44000081, 0xE0002B83, 0x4C000000}));
    EXPECT_EQ(context.lowLoReady, (std::array{false, false, false, false}));
}

}  // namespace
}  // namespace hxr
