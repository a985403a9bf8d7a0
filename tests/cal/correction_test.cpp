#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstring>
#include <limits>
#include <numbers>
#include <vector>

#include "cal/correction_lookup.h"
#include "cal/image.h"
#include "cal/response_filter.h"
#include "sim/synthetic_image.h"

namespace hxr {
namespace {

class Corrections : public testing::Test {
  protected:
    Corrections() {
        const auto bytes = sim::makeSyntheticImage({});
        state.image = platform::makeAligned<HXRCalData>();
        std::memcpy(state.image.get(), bytes.data(), bytes.size());
        for (int t = 0; t < 7; ++t) image().tempAtIndex[t] = -30.0F + 15.0F * static_cast<float>(t);
    }

    HXRCalData& image() { return *state.image; }
    void settle(int index, double fraction) {
        state.tempIndex = index;
        state.tempFraction = fraction;
    }

    CorrectionState state;
};

TEST_F(Corrections, FindTheTemperatureBetweenItsNeighbours) {
    const auto expectAt = [&](float degrees, int index, float fraction) {
        updateTemperature(state, degrees);
        EXPECT_EQ(state.tempIndex, index) << degrees;
        if (std::isnan(fraction))
            EXPECT_TRUE(std::isnan(state.tempFraction)) << degrees;
        else
            EXPECT_EQ(state.tempFraction, fraction) << degrees;
    };
    constexpr float infinity = std::numeric_limits<float>::infinity();
    const float nan = std::nanf("");
    for (const auto& [degrees, index, fraction] : {std::tuple{-infinity, 0, 0.0F},
                                                   {-30.5F, 0, 0.0F},
                                                   {-30.0F, 0, 0.0F},
                                                   {-22.5F, 0, 0.5F},
                                                   {-15.0F, 1, 0.0F},
                                                   {31.5F, 4, 1.5F / 15.0F},
                                                   {45.0F, 5, 0.0F},
                                                   {59.25F, 5, 14.25F / 15.0F},
                                                   {60.0F, 5, 1.0F},
                                                   {infinity, 5, 1.0F},
                                                   {nan, 5, 1.0F}})
        expectAt(degrees, index, fraction);

    state.manualTemp = true;
    updateTemperature(state, 1.0F);
    EXPECT_TRUE(std::isnan(state.temperature));  // as it was
    for (const auto& [manual, index, fraction] :
         {std::tuple{0, 0, 0.0}, {2, 2, 0.0}, {5, 5, 0.0}, {6, 5, 1.0}, {9, 5, 1.0}}) {
        state.manualTempIndex = manual;
        updateTemperature(state, 50.0F);
        EXPECT_EQ(state.tempIndex, index);
        EXPECT_EQ(state.tempFraction, fraction);
    }

    // Points that were never measured don't end the search; beside one the fraction isn't a number.
    state.manualTemp = false;
    image().tempAtIndex[3] = image().tempAtIndex[6] = nan;
    for (const auto& [degrees, index, fraction] :
         {std::tuple{-22.5F, 0, 0.5F}, {-7.5F, 1, 0.5F}, {20.0F, 3, nan}, {37.5F, 4, 0.5F}, {46.0F, 5, 1.0F}})
        expectAt(degrees, index, fraction);
}

TEST_F(Corrections, OfADummyImageCorrectNothingAtAnyTemperature) {
    cal::buildDummyCorrections(image());
    for (const float degrees : {-100.0F, 20.0F, 100.0F}) {
        updateTemperature(state, degrees);
        EXPECT_EQ(state.tempIndex, 5);
        EXPECT_EQ(state.tempFraction, 1.0);
    }
    EXPECT_EQ(lookupGain(state, 0, 0, 0), 0.0F);
    EXPECT_EQ(lookupGainCode(state, 3, 513), 8);
    EXPECT_EQ(lookupLoft(state, 0, 300), LoftPair{});
    EXPECT_EQ(lookupChannelPhase(state, 0, 300), 0.0F);
    EXPECT_EQ(interpolateCoarseTune(state), 0.0);
    const ResponseFilter filter = buildResponseFilter(state, false, 0, 0.0, 300);
    float largest = 0;
    for (const TapPair& tap : filter.taps) {
        EXPECT_EQ(tap.first, tap.second);
        largest = std::max(largest, tap.first);
    }
    EXPECT_EQ(largest, 1.0F);
    EXPECT_EQ(filter.delayPhase, 0.0);
}

TEST_F(Corrections, InterpolateInSinglePrecisionAndStopAtTheTablesEdges) {
    const auto& gains = image().gainTable;
    settle(2, 0.25);
    const float expected = 0.75F * gains[2][1][3][100] + 0.25F * gains[3][1][3][100];
    EXPECT_EQ(lookupGain(state, 1, 3, 100), expected);
    EXPECT_EQ(lookupGain(state, -1, -5, -1), 0.75F * gains[2][0][0][0] + 0.25F * gains[3][0][0][0]);
    EXPECT_EQ(lookupGain(state, 4, 7, 600), 0.75F * gains[2][3][6][513] + 0.25F * gains[3][3][6][513]);
    EXPECT_EQ(totalCorrection(1.5F, 0.1), 1.6F);

    // At the ends of a pair the other slice isn't looked at, whatever it holds.
    image().gainTable[3][0][0][0] = std::nanf("");
    settle(2, 0.0);
    EXPECT_EQ(lookupGain(state, 0, 0, 0), gains[2][0][0][0]);
    settle(3, 1.0);
    EXPECT_EQ(lookupGain(state, 0, 0, 0), gains[4][0][0][0]);

    image().coarseTuneByTemp[2] = -100;
    image().coarseTuneByTemp[3] = 200;
    settle(2, 0.25);
    EXPECT_EQ(interpolateCoarseTune(state), -25.0);
    settle(2, 0.1);  // rounded to single precision, then widened
    EXPECT_EQ(interpolateCoarseTune(state),
              (1.0 - static_cast<double>(0.1F)) * -100 + static_cast<double>(0.1F) * 200);
    settle(2, 1.0);
    EXPECT_EQ(interpolateCoarseTune(state), 200.0);
}

TEST_F(Corrections, FetchTheValuesOfATuning) {
    EXPECT_EQ(lookupGainCode(state, 2, 17), image().channelGainCode[2][17]);
    EXPECT_EQ(lookupGainCode(state, -1, -1), image().channelGainCode[0][0]);
    EXPECT_EQ(lookupGainCode(state, 9, 600), image().channelGainCode[3][513]);
    const auto loft = [&](int c, int point) {
        return LoftPair{image().loftI[c][point], image().loftQ[c][point]};
    };
    EXPECT_EQ(lookupLoft(state, 1, 0), loft(1, 0));
    EXPECT_EQ(lookupLoft(state, 1, 144), loft(1, 0));
    EXPECT_EQ(lookupLoft(state, 2, 200), loft(2, 56));
    EXPECT_EQ(lookupLoft(state, 7, 600), loft(3, 369));
    image().loftI[0][0] = -1;  // the section's mark of absence
    EXPECT_EQ(lookupLoft(state, 2, 200), LoftPair{});
    state.loftOverride = true;
    state.loftOverrideI = 70000;
    state.loftOverrideQ = -5;
    EXPECT_EQ(lookupLoft(state, 2, 200), (LoftPair{70000, -5}));

    constexpr float pi = std::numbers::pi_v<float>;
    for (const auto& [a, b, phase] : {std::tuple{0.5F, 1.0F, 2 * pi - 0.75F},
                                      {-1.0F, -2.0F, 1.5F},
                                      {-3.0F, 3.0F, pi},
                                      {3.0F, -3.0F, pi},
                                      {0.0F, 0.0F, 0.0F},
                                      // The float beside pi is above it, the one before below.
                                      {0.0F, pi, 0.5F * pi},
                                      {0.0F, -pi, 1.5F * pi},
                                      {0.0F, std::nextafter(pi, 0.0F), 1.5F * pi},
                                      {0.0F, -std::nextafter(pi, 0.0F), 0.5F * pi}}) {
        image().phasePairTable[1][40][0] = a;
        image().phasePairTable[1][40][1] = b;
        EXPECT_NEAR(lookupChannelPhase(state, 1, 40), phase, 2e-6F) << a << ' ' << b;
    }
}

struct FilterCase {
    int k;
    bool useFullGrid;
    double delay;
    bool lowGrid;
    int row;
    bool swapped;
    int channel = 2;
    int temperature = 3;
    float fraction = 0;
};

/// The taps of one rail by the long way: sums over all points and bins.
/// @param sign  -1 for the first rail, 1 for the second
std::vector<float> plainRail(const HXRCalData& image, const FilterCase& c, int sign) {
    constexpr double pi = std::numbers::pi;
    // The calibration and the roots of its ratios are single-precision numbers, the rest is double.
    const auto point = [&](const auto& low, const auto& full, int p) -> float {
        const auto slice = [&](int t) {
            return c.lowGrid ? low[t][c.channel][c.row][p] : full[t][c.channel][c.row][p];
        };
        if (c.fraction == 0) return slice(c.temperature);
        if (c.fraction == 1) return slice(c.temperature + 1);
        return (1 - c.fraction) * slice(c.temperature) + c.fraction * slice(c.temperature + 1);
    };
    const auto ratio = [&](int p) { return point(image.lowGridRatio, image.fullGridRatio, p); };
    const auto phase = [&](int p) { return point(image.lowGridPhase, image.fullGridPhase, p); };
    const auto level = [&](int p) {
        return std::pow(10.0, double{point(image.lowGridLevel, image.fullGridLevel, p)} / 20);
    };
    const auto onRail = [&](float squared) { return std::pow(double{std::sqrt(squared)}, sign); };

    std::vector<double> prototype(64);
    double sum = 0;
    for (int n = 0; n < 63; ++n) {
        const double x = 2 * static_cast<double>(0.45F) * (n - 31);
        sum += prototype[static_cast<std::size_t>(n)] = x == 0 ? 1.0 : std::sin(pi * x) / (pi * x);
    }
    std::vector<double> taps(63);
    for (int b = 0; b <= 32; ++b) {
        std::complex<double> bin;
        for (int n = 0; n < 64; ++n) {
            bin +=
                prototype[static_cast<std::size_t>(n)] / sum / 64.0 * std::polar(1.0, -2 * pi * b * n / 64);
        }
        if (b == 0) bin *= level(0) * onRail(2 * ratio(0) - ratio(1));
        if (b > 0 && b < 32) {
            const int p = std::min(b - 1, 25);
            bin *= level(p) * onRail(ratio(p)) *
                   std::polar(1.0, b * c.delay * 125e6 * pi / 31 + sign * double{phase(p) / 2});
        }
        const double weight = b == 0 || b == 32 ? 1.0 : 2.0;
        for (int n = 0; n < 63; ++n) {
            taps[static_cast<std::size_t>(n)] += weight * (bin * std::polar(1.0, 2 * pi * b * n / 64)).real();
        }
    }
    std::vector<float> rounded;
    for (int n = 0; n < 63; ++n)
        rounded.push_back(static_cast<float>(taps[static_cast<std::size_t>(n)] *
                                             (0.54 - 0.46 * std::cos(2 * pi * n / 62))));
    return rounded;
}

TEST_F(Corrections, DesignTheResponseFilterAsTheLongWayDoes) {
    // Where the full grid begins, the low one has rows that nothing reads.
    for (auto* table : {&image().lowGridRatio, &image().lowGridPhase, &image().lowGridLevel}) {
        for (auto& slice : *table) {
            for (auto& channel : slice) std::fill(&channel[144][0], &channel[149][25] + 1, std::nanf(""));
        }
    }
    for (const FilterCase& c :
         {FilterCase{0, false, 0, true, 0, true}, FilterCase{1, false, 0, true, 0, true},
          FilterCase{2, false, 0, true, 2, true}, FilterCase{24, false, 5e-9, true, 24, true},
          FilterCase{25, false, -25e-9, true, 25, false}, FilterCase{24, true, 0, false, 24, true},
          FilterCase{143, false, 0, true, 143, false}, FilterCase{143, true, 0, false, 143, false},
          FilterCase{144, false, 25e-9, false, 144, false}, FilterCase{149, false, 0, false, 149, false},
          FilterCase{510, false, 0, false, 510, false}, FilterCase{511, true, 0, false, 510, false},
          FilterCase{600, false, 0, false, 510, false}, FilterCase{1, true, 0, false, 0, true, 0, 0, 0.3F},
          FilterCase{1, true, 0, false, 0, true, 1}, FilterCase{1, true, 2e-9, false, 0, true, 3, 4, 0.6F},
          FilterCase{80, false, 1e-9, true, 80, false, 1, 2, 0.7F},
          FilterCase{300, false, 0, false, 300, false, 3, 5, 1.0F}}) {
        settle(c.temperature, c.fraction);
        auto first = plainRail(image(), c, -1);
        auto second = plainRail(image(), c, 1);
        // All that follows is single precision too.
        float largest = 0, sumFirst = 0, sumSecond = 0;
        for (std::size_t n = 0; n < 63; ++n) largest = std::max({largest, first[n], second[n]});
        for (std::size_t n = 0; n < 63; ++n) {
            sumFirst += first[n] /= largest;
            sumSecond += second[n] /= largest;
        }
        if (c.swapped) std::swap(first, second);

        const ResponseFilter filter = buildResponseFilter(state, c.useFullGrid, c.channel, c.delay, c.k);
        for (std::size_t n = 0; n < 63; ++n) {
            EXPECT_EQ(filter.taps[n], (TapPair{first[n], second[n]})) << c.k << ", tap " << n;
        }
        EXPECT_EQ(filter.gainDb,
                  -20 * double{std::log10(std::sqrt(sumFirst * sumFirst + sumSecond * sumSecond))})
            << c.k;
        EXPECT_DOUBLE_EQ(filter.delayPhase, c.delay * 1.5e9 * std::numbers::pi / 31);
    }
}

TEST_F(Corrections, PackTapsForTheReceiver) {
    ResponseTaps taps = passThroughTaps();
    taps[0] = {0.5F, -0.5F};
    taps[62] = {-1.5F, 0.00004F};
    const auto words = tapBlock(taps);
    ASSERT_EQ(words.size(), 68U);
    EXPECT_EQ(words[3], 0U);
    EXPECT_EQ(words[4], 0xC1803E80U);
    EXPECT_EQ(words[4 + 31], 0x7D007D00U);
    EXPECT_EQ(words[4 + 62], 0x00018000U);
    EXPECT_EQ(words[67], 0U);
    for (const auto& [channel, address] : {std::pair{0, 252}, {1, 380}, {2, 508}, {3, 636}})
        EXPECT_EQ(tapBlockAddress(channel), address);
}

}  // namespace
}  // namespace hxr
