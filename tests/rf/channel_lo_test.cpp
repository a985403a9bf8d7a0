#include "rf/channel_lo.h"

#include <gtest/gtest.h>

#include "support/words_text.h"

namespace hxr {
namespace {

using test::joined;
using test::registerWords;
using test::Words;

constexpr IdleHighLo off = IdleHighLo::off, parked = IdleHighLo::parked;

/// Tuning data in which each point is told from its neighbours.
LoContext tabled() {
    static const auto data = [] {
        auto made = std::make_unique<HXRCBBData>();
        for (unsigned t = 0; t < 5; ++t) {
            for (unsigned i = 0; i < 513; ++i) {
                made->cbbLowTable[0][t][i] = static_cast<std::uint8_t>(1U << i % 4);
                made->cbbLowTable[1][t][i] = static_cast<std::uint8_t>(i + t);
                made->cbbLowTable[2][t][i] = static_cast<std::uint8_t>(i % 11);
            }
        }
        for (unsigned t = 0; t < 4; ++t) {
            for (unsigned i = 0; i < 705; ++i) {
                made->cbbHighTable[0][t][i] = static_cast<std::uint8_t>(i % 4);
                made->cbbHighTable[1][t][i] = static_cast<std::uint8_t>(i + t);
                made->cbbHighTable[2][t][i] = static_cast<std::uint8_t>(i % 7);
            }
        }
        return made;
    }();
    LoContext context;
    loadLoTables(context, *data);
    return context;
}

TEST(ChannelLo, LowLoImageIsTheChipsListWithAPauseBehind) {
    LoContext untabled;
    EXPECT_EQ(
        buildLowLoImage(untabled, 2),
        registerWords(0x43000000,
                      "00=18 01=00 7C=00 73=00 72=32 71=60 70=03 6F=00 6E=00 52=F4 47=C0 41=28 40=50 3F=80 "
                      "3E=0C 3D=00 3A=55 39=07 38=00 37=00 36=30 35=4C 34=9E 33=0C 32=04 31=A7 30=3F 2F=0A "
                      "2E=0A 2D=0A 2C=24 2B=00 2A=00 28=03 27=CD 26=32 25=0E 24=80 23=00 22=00 20=10 1F=01 "
                      "1E=68 1D=00 1C=00 1B=00 1A=03 19=E8 18=00 17=00 16=80 15=00 14=00 12=40 11=00 10=28 D",
                      0x05000020));
    EXPECT_EQ(untabled.lowLoReady, (std::array{false, false, true, false}));

    LoContext context = tabled();
    EXPECT_EQ(
        buildLowLoImage(context, 0),
        registerWords(0x41000000,
                      "00=99 00=00 7C=00 73=00 72=32 71=60 70=03 6F=00 6E=00 52=F4 47=C0 41=28 40=50 3F=80 "
                      "3E=0C 3D=00 3A=55 39=07 38=12 37=AF 36=30 35=4C 34=3E 33=0C 32=04 31=A7 30=3F 2F=0A "
                      "2E=0A 2D=0A 2C=24 2B=00 2A=00 28=03 27=CD 26=32 25=0E 24=80 23=02 22=00 20=18 1F=01 "
                      "1E=68 1D=00 1C=00 1B=00 1A=03 19=E8 18=00 17=00 16=80 15=00 14=00 12=00 11=00 10=28 D",
                      0x05000020));
}

TEST(ChannelLo, HighLoImageIsTheChipsListWithItsPauses) {
    EXPECT_EQ(
        buildHighLoImage(1),
        joined({registerWords(
                    0xA0000000,
                    "0000=18 D 0100=3F 0101=3F 0102=3F 0103=3F D 0104=3F 0105=3F 0106=3F 0107=3F D 0108=3F "
                    "0109=25 010A=25 010B=3F D 010C=3F 010D=3F 010E=3F 010F=3F D 0110=3F 0111=3F D 0053=45 "
                    "004F=08 D 004D=00 D 003F=02 003E=32 003A=47 0039=47 D 0038=47 0037=71 0036=C0 D 0035=01 "
                    "0034=36 0032=00 0031=00 0030=01 002F=00 D 002D=F1 002C=0E 002B=01 002A=30 D 0029=0B "
                    "0027=F0 0025=01 0024=02 D 0020=C1 001F=0B 001E=00 001D=CF D 001A=80 0015=06 0011=20 "
                    "0010=22 D",
                    0x05000050),
                {0xA2380001}}));
    EXPECT_EQ(buildHighLoImage(3).size(), 112U);
}

TEST(ChannelLo, LowLoTuneSetsDividersAndFilter) {
    struct Case {
        int channel, band;
        double hz;
        const char* registers;
    };
    // The reference is 125 MHz: 5 GHz is 40 of it, 4.50390625 GHz 36 and 1/32.
    const Case cases[] = {
        {0, 16, 5e9, "25=06 24=80 17=00 16=00 10=28"},
        {1, 1, 39.0625e6, "25=04 24=F0 17=00 16=00 10=28"},
        {2, 9, 1.05e9, "25=05 24=A0 17=01 16=30 10=21"},   // 4.2 GHz: 33 19/32
        {3, 12, 1.75e9, "25=06 24=A0 17=00 16=00 10=38"},  // 7 GHz
        {0, 13, 2.85e9, "25=06 24=90 17=01 16=30 10=2D"},  // 5.7 GHz: 45 19/32
        {0, 14, 2.86e9, "25=05 24=90 17=01 16=80 10=2D"},  // 5.72 GHz: 45 24/32
        {0, 16, 4.85e9, "25=05 24=80 17=01 16=A0 10=26"},  // 38 26/32
        {0, 16, 4.851e9, "25=06 24=80 17=01 16=A0 10=26"},
        {0, 16, 4.00390625e9, "25=05 24=80 17=00 16=10 10=20"},
    };
    for (const Case& c : cases) {
        LoContext context;
        const std::uint32_t chip = (0x41U + static_cast<std::uint32_t>(c.channel)) << 24;
        const std::uint32_t highLo[] = {0x90002B83, 0xA0002B83, 0xD0002B83, 0xE0002B83};
        EXPECT_EQ(buildLowLoTune(context, c.channel, c.band, c.hz, off),
                  joined({{highLo[c.channel], chip + 0x18}, registerWords(chip, c.registers), {1, 1}}))
            << c.hz;
        EXPECT_EQ(
            buildLowLoTune(context, c.channel, c.band, c.hz, parked),
            joined({buildHighLoTune(context, c.channel, 21e9), registerWords(chip, c.registers), {1, 1}}))
            << c.hz;
    }
}

TEST(ChannelLo, TuningDataSetTheVcoFromTheRowAtOrBelow) {
    struct Case {
        double hz;
        unsigned row;
    };
    const Case cases[] = {{4e9, 0},      {4.0078125e9 - 1, 0}, {4.0078125e9, 1},
                          {1.25e9, 128}, {7.999e9, 511},       {19e9, 512}};
    for (const auto& [hz, row] : cases) {
        LoContext context = tabled();
        const Words words = buildLowLoTune(context, 3, 16, hz, off);
        EXPECT_EQ(Words(words.begin() + 2, words.begin() + 6),
                  (Words{0x4400343E, 0x44003800 + (1U << row % 4) * 16 + row % 11,
                         0x44003700 + (row + 3) % 256, 0x44001200}))
            << hz;
        EXPECT_EQ(words.size(), 13U);
    }
}

TEST(ChannelLo, HighLoTuneCountsItsDividedOutput) {
    struct Case {
        double hz;
        unsigned integer, fraction, halvings, stage;
    };
    const Case cases[] = {
        {5.625e9, 22, 256, 1, 6},     {6.5625e9, 26, 128, 1, 6},
        {6.6015625e9, 26, 208, 1, 7}, {8.984375e9, 35, 480, 1, 7},
        {9e9, 36, 0, 1, 9},           {10.9765625e9, 43, 464, 1, 9},
        {11e9, 44, 0, 0, 11},         {20.0390625e9, 80, 80, 0, 11},
    };
    for (const auto& [hz, integer, fraction, halvings, stage] : cases) {
        const Words expected =
            joined({{0xD0002B01, 0x05000018, 0, 0, 0, 0xD0001F0B, 0xD0004D00, 0xD00020C1, 0x05000020, 0, 0, 0,
                     0x05000018, 0, 0, 0},
                    {0xD0002900 + stage, 0xD0001502 + fraction / 256, 0xD0001400 + fraction % 256,
                     0xD0001100 + halvings * 32, 0xD0001000 + integer}});
        EXPECT_EQ(buildHighLoTune(LoContext(), 2, hz), expected) << hz;
    }
}

TEST(ChannelLo, HighLoTakesItsVcoFromTheTuningData) {
    struct Case {
        double hz;
        unsigned row;
    };
    const Case cases[] = {{5.5e9, 0},       {5.6e9, 12}, {10.99e9, 702}, {11e9, 0},
                          {11.015625e9, 1}, {20e9, 576}, {5e10, 704}};
    for (const auto& [hz, row] : cases) {
        const LoContext context = tabled();
        const unsigned a = row % 4, b = (row + 1) % 256, c = row % 7;
        const Words core{0xA0003500 + c, 0xA0001600 + b / 2 + (a % 2) * 0x80};
        const unsigned low = b % 2 * 0x80 + a / 2 * 0x40;

        const Words tune = buildHighLoTune(context, 1, hz);
        ASSERT_EQ(tune.size(), 23U);
        EXPECT_EQ(Words(tune.begin() + 5, tune.begin() + 8), (Words{0xA0001F0B, 0xA0004D07, 0xA0002041}));
        EXPECT_EQ(Words(tune.begin() + 12, tune.begin() + 14), core) << hz;
        EXPECT_EQ(tune[19] & ~1U, 0xA0001502 + low) << hz;
    }
}

TEST(ChannelLo, FollowSetsPumpStageAndDividerByItsEdges) {
    struct Case {
        double hz;
        unsigned row, pump, stage, halvings, divider;
    };
    // The pump looks at the VCO, twice the output below 11 GHz; the divider counts a reference of at most 625 MHz.
    const Case cases[] = {
        {5.5e9, 0, 0x09, 6, 1, 0x10},   {6.5625e9, 136, 0x09, 6, 1, 0x10}, {6.6e9, 140, 0x09, 7, 1, 0x10},
        {8e9, 320, 0x09, 7, 1, 0x10},   {8.01e9, 321, 0x07, 7, 1, 0x10},   {9e9, 448, 0x07, 9, 1, 0x10},
        {10e9, 576, 0x07, 9, 1, 0x10},  {10.01e9, 577, 0x09, 9, 1, 0x20},  {10.99e9, 702, 0x09, 11, 1, 0x20},
        {11e9, 0, 0x09, 11, 0, 0x20},   {16e9, 320, 0x09, 11, 0, 0x20},    {16.01e9, 320, 0x07, 11, 0, 0x20},
        {20e9, 576, 0x07, 11, 0, 0x20}, {5e10, 704, 0x09, 11, 0, 0x20},
    };
    for (const LoContext& context : {LoContext(), tabled()}) {
        for (const auto& [hz, row, pump, stage, halvings, divider] : cases) {
            const LoTableRow& point = context.highLoTables[1][row];
            const unsigned low = point.b % 2 * 0x80 + point.a / 2 * 0x40;
            EXPECT_EQ(buildHighLoFollow(context, 1, hz),
                      (Words{0xA0002B01,
                             0x05000018,
                             0,
                             0,
                             0,
                             0xA0001F00 + pump,
                             0xA0004D07,
                             0xA0002001,
                             0x05000020,
                             0,
                             0,
                             0,
                             0xA0003500 + point.c,
                             0xA0001600 + point.b / 2 + (point.a % 2) * 0x80,
                             0x05000018,
                             0,
                             0,
                             0,
                             0xA0002900 + stage,
                             0xA0001506 + low,
                             0xA0001400,
                             0xA0001100 + halvings * 32,
                             0xA0001000 + divider}))
                << hz;
        }
    }
}

TEST(ChannelLo, BandZeroAndHighBandsResetTheLowLoWhichIsLoadedAnewBelow) {
    LoContext context;
    const Words image = buildLowLoImage(context, 0);

    const Words high = retuneChannelLo(context, 0, 17, 6e9, false, off);
    const Words tune = buildHighLoTune(context, 0, 6e9);
    EXPECT_EQ(high, joined({{0x5100FFB1, 0x41000081, 0x41000081}, tune, tune}));
    EXPECT_FALSE(context.lowLoReady[0]);
    EXPECT_EQ(retuneChannelLo(context, 0, 17, 6e9, false, off),
              joined({{0x5100FFB1, 0x41000081}, tune, tune}));

    const Words lowered = retuneChannelLo(context, 0, 16, 5e9, false, off);
    EXPECT_EQ(lowered, joined({{0x5100FF88}, image, buildLowLoTune(context, 0, 16, 5e9, off)}));
    EXPECT_EQ(retuneChannelLo(context, 0, 16, 5e9, false, off),
              joined({{0x5100FF88}, buildLowLoTune(context, 0, 16, 5e9, off)}));

    EXPECT_EQ(buildLowLoTune(context, 0, 0, 1e9, parked), Words{0x41000081});
    EXPECT_FALSE(context.lowLoReady[0]);
}

TEST(ChannelLo, OnTheSharedLoAChannelFollowsOrRests) {
    LoContext context;
    context.lowLoReady.fill(true);
    EXPECT_EQ(retuneChannelLo(context, 1, 9, 1e9, true, off), (Words{0x5101FF8E, 0x42000081, 0xA0002B83}));
    EXPECT_EQ(retuneChannelLo(context, 2, 9, 1e9, true, parked),
              joined({{0x5102FF4E, 0x43000081}, buildHighLoFollow(context, 2, 5e10)}));
    const Words follow = buildHighLoFollow(context, 3, 20e9);
    EXPECT_EQ(retuneChannelLo(context, 3, 19, 20e9, true, parked),
              joined({{0x5105FF61, 0x44000081}, follow, follow}));
    EXPECT_EQ(context.lowLoReady, (std::array{true, false, false, false}));
    EXPECT_EQ(follow.back(), 0xE0001020);
}

TEST(ChannelLo, TuningDataFillEveryTableAtItsFrequencies) {
    const LoContext context = tabled();
    EXPECT_TRUE(context.cbbLoaded);
    EXPECT_EQ(context.lowLoTables[4][512].frequencyMHz, 4000);
    EXPECT_EQ(context.lowLoTables[0][1].frequencyMHz, 2003.90625);
    EXPECT_EQ(context.highLoTables[3][704].frequencyMHz, 11000);
    const SharedVcoRow& row = context.sharedVcoTable[300];
    EXPECT_EQ(row.frequencyGHz, 12.6875);
    EXPECT_EQ(row.core, 1U);
    EXPECT_EQ(row.band, 304U % 256);
    EXPECT_EQ(row.bias, 300 % 11);
}

}  // namespace
}  // namespace hxr
