#include "rf/front_end.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace hxr {
namespace {

using words::Word;
using Words = std::vector<Word>;

/// What the receiver is known to need for each band: two words of the image, without channel and attenuator.
struct BandWords {
    Word preselector, routing;
};
constexpr BandWords bandWords[] = {
    {0x01E0, 0x103F}, {0x1060, 0x3217}, {0x1860, 0x3216}, {0x3060, 0x3211}, {0x0060, 0x3214},
    {0x0860, 0x3210}, {0x3860, 0x3215}, {0x2060, 0x3212}, {0x2860, 0x3213}, {0x3260, 0x152E},
    {0x0B60, 0x152C}, {0x0C60, 0x152C}, {0x2C60, 0x152B}, {0x2D60, 0x152B}, {0x1F60, 0x1529},
    {0x1F60, 0x1528}, {0x1E60, 0x1528}, {0x8020, 0x1020}, {0x4040, 0x1020}, {0x0000, 0x1820},
};

TEST(FrontEnd, ImageHoldsEveryBandsSettings) {
    for (int band = 0; band < 20; ++band) {
        const auto image = buildFrontEndImage({.channel = 0, .band = band, .attenuatorDb = 0, .gainCode = 0});
        const auto& [preselector, routing] = bandWords[band];
        EXPECT_EQ(image[4], 0x93000000 + preselector) << band;
        EXPECT_EQ(image[6], 0x94000000 + routing) << band;
        EXPECT_EQ(image[7], band <= 8 ? 0x52000101U : 0x52000100U) << band;
    }
}

TEST(FrontEnd, ImagePlacesItsValuesByChannel) {
    struct Case {
        FrontEnd frontEnd;
        Words image;
    };
    const Case cases[] = {
        {{.channel = 0, .band = 9, .attenuatorDb = 30, .gainCode = 0x5A},
         {0x92183333, 0x92193333, 0x921A8000, 0x921B8000, 0x9300327E, 0x9100005A, 0x9400152E, 0x52000100}},
        {{.channel = 1, .band = 18, .attenuatorDb = 10, .gainCode = 7, .loftI = -1, .loftQ = 1},
         {0xA2183333, 0xA2193333, 0xA21A7FFF, 0xA21B8001, 0xA300404A, 0xA1000007, 0xA4001020, 0x52000200}},
        {{.channel = 2, .band = 8, .attenuatorDb = 0, .gainCode = 0, .firstDacValue = fullBandFirstDacValue},
         {0xD2180000, 0xD2193333, 0xD21A8000, 0xD21B8000, 0xD3002860, 0xD1000000, 0xD4003213, 0x52000404}},
        // An offset of the whole range reaches the output's name: it is added, not cut off.
        {{.channel = 3, .band = 0, .attenuatorDb = 5, .gainCode = 255, .loftI = 0x8000, .loftQ = -0x8001},
         {0xE2183333, 0xE2193333, 0xE21B0000, 0xE21AFFFF, 0xE30001E5, 0xE10000FF, 0xE400103F, 0x52000808}},
    };
    for (const auto& [frontEnd, expected] : cases) {
        const auto image = buildFrontEndImage(frontEnd);
        EXPECT_EQ(Words(image.begin(), image.end()), expected) << "channel " << frontEnd.channel;
    }
}

TEST(FrontEnd, PathWordFollowsEachChannelsWiring) {
    constexpr double lo = 1e9;  // its filter is 7
    struct Case {
        int band;
        bool shared;
        Word words[4];
    };
    const Case cases[] = {
        {9, false, {0x5100FF8E, 0x5101FF2E, 0x5102FF1E, 0x5105FF2E}},
        {9, true, {0x5100FF2E, 0x5101FF8E, 0x5102FF4E, 0x5105FF8E}},
        {18, false, {0x5100FFB1, 0x5101FFE1, 0x5102FFD1, 0x5105FFB1}},
        {18, true, {0x5100FFC1, 0x5101FF31, 0x5102FF31, 0x5105FF61}},
    };
    for (const Case& c : cases) {
        for (int channel = 0; channel < 4; ++channel)
            EXPECT_EQ(buildPathWord(channel, c.band, c.shared, lo), c.words[channel])
                << c.band << ' ' << channel;
    }
}

TEST(FrontEnd, LoFilterChangesAboveItsEdges) {
    struct Case {
        double hz;
        unsigned filter, mirrored;
    };
    const Case cases[] = {
        {20e6, 2, 2},  {120e6, 2, 2}, {120.1e6, 1, 4}, {240e6, 1, 4},  {241e6, 3, 6},   {441e6, 5, 5},
        {901e6, 7, 7}, {1.8e9, 7, 7}, {1.81e9, 6, 3},  {2.85e9, 6, 3}, {2.851e9, 4, 1},
    };
    for (const auto& [hz, filter, mirrored] : cases) {
        EXPECT_EQ(buildPathWord(0, 5, false, hz) >> 1 & 7, filter) << hz;
        EXPECT_EQ(buildPathWord(3, 5, false, hz) >> 1 & 7, mirrored) << hz;
        EXPECT_EQ(buildPathWord(0, 17, false, hz) >> 1 & 7, 0U) << hz;
    }
}

TEST(FrontEnd, InputSelectNamesTheChannelBetweenItsPauses) {
    struct Case {
        bool fullBand;
        int channel, band;
        Word first, selection;
    };
    const Case cases[] = {
        {false, 0, 0, 0x05000009, 0x13000001},  {false, 3, 16, 0x05000009, 0x13000008},
        {true, 2, 16, 0x05000009, 0x13000400},  {false, 0, 17, 0x05000027, 0x13000010},
        {false, 3, 19, 0x05000027, 0x13000080}, {true, 1, 18, 0x05000027, 0x13000220},
    };
    for (const Case& c : cases) {
        CommandList list;
        list.beginPacket();
        appendInputSelect(list, c.fullBand, c.channel, c.band);
        EXPECT_EQ(list.writeIndex(), 10);
        EXPECT_EQ(Words(list.words().begin(), list.words().begin() + 10),
                  (Words{c.first, 0, 0, c.selection, 0x05012710, 0, 0, 0x05000009, 0, 0}));
    }
}

}  // namespace
}  // namespace hxr
