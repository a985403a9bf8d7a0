#include "rf/band_plan.h"

#include <gtest/gtest.h>

#include <cmath>

namespace hxr {
namespace {

TEST(BandPlan, EdgesBelongToTheBandAboveInSinglePrecision) {
    struct Case {
        double hz;
        int band;
    };
    const Case cases[] = {
        {0, 0},        {44'999'996, 0}, {44'999'999, 1}, {45e6, 1},     {63.9e6, 1},    {64e6, 2},
        {93e6, 3},     {143e6, 4},      {200e6, 5},      {290e6, 6},    {440e6, 7},     {620e6, 8},
        {950e6, 9},    {1.15e9, 10},    {1.56e9, 11},    {1.8e9, 12},   {2.2e9, 13},    {2.999e9, 13},
        {3e9, 14},     {3.9e9, 15},     {4.5e9, 16},     {5.599e9, 16}, {5.6e9, 17},    {8.5e9, 18},
        {8.499e9, 17}, {13.25e9, 19},   {13.2e9, 18},    {20e9, 19},    {INFINITY, 19}, {-1e6, 0},
    };
    for (const Case& c : cases) EXPECT_EQ(bandForFrequency(static_cast<float>(c.hz)), c.band) << c.hz;
}

TEST(BandPlan, ManualBandHoldsWhateverTheFrequencyUntilTakenBack) {
    for (const int band : {7, 0, 19, -3, 1000}) {
        useManualBand(band);
        EXPECT_EQ(bandForFrequency(1e9F), band);
        EXPECT_EQ(bandForFrequency(19e9F), band);
    }
    useAutomaticBands();
    EXPECT_EQ(bandForFrequency(1e9F), 9);
    EXPECT_EQ(bandSettings(1000).routing, bandSettings(19).routing);
    EXPECT_EQ(bandSettings(-3).routing, bandSettings(0).routing);
}

TEST(BandPlan, FrequencyIndexIsTheGridLineAtOrAboveTheLo) {
    for (int k = 0; k <= 513; ++k) {
        const double lo = 39.0625e6 * k;
        EXPECT_EQ(frequencyIndexFor(lo), k);
        EXPECT_EQ(frequencyIndexFor(lo + 1), k);
        EXPECT_EQ(frequencyIndexFor(lo + 2e6), k + 1);
        EXPECT_EQ(frequencyIndexFor(lo + 38e6), k + 1);
    }
}

/// Megahertz that a row covers, told from where it stands in the spectrum.
std::pair<double, double> covered(const LowStepSplice& row) {
    constexpr double rateMHz = 50;
    const double middle = (row.inverted ? row.loFrequency - row.centerFrequency : row.centerFrequency) * 1e-6;
    const auto edge = [&](unsigned bin64) { return middle + (bin64 / 64.0 - 0.5) * rateMHz; };
    return {edge(row.firstBin64), edge(row.lastBin64)};
}

TEST(BandPlan, SplicesCoverTheLowestStepsWithoutAGapEachInItsBand) {
    const double edgesMHz[] = {-3.90625, 35.15625,  42.96875,  64.0625,   74.21875,
                               92.96875, 113.28125, 142.96875, 152.34375, 191.40625,
                               200,      230.46875, 269.53125, 289.84375, 308.59375};
    const int bands[] = {0, 0, 1, 2, 2, 3, 3, 4, 4, 4, 5, 5, 5, 6};
    for (std::size_t i = 0; i < lowStepSplices.size(); ++i) {
        const LowStepSplice& row = lowStepSplices[i];
        EXPECT_EQ(covered(row), std::pair(edgesMHz[i], edgesMHz[i + 1])) << i;
        EXPECT_EQ(bandForFrequency(static_cast<float>(row.bandFrequency)), bands[i]) << i;
        const bool indexOfANeighbour = i == 7 || i == 9 || i == 13;
        EXPECT_EQ(row.calIndex != static_cast<int>(row.step), indexOfANeighbour) << i;
    }

    int rows = 0;
    for (int step = firstStep; step <= lastStep; ++step) {
        unsigned width64 = 0;
        for (const LowStepSplice& row : rowsForStep(step)) {
            EXPECT_EQ(&row, &lowStepSplices[static_cast<std::size_t>(rows++)]);
            width64 += row.lastBin64 - row.firstBin64;
        }
        EXPECT_EQ(width64, step < 9 ? 50U : 0U) << step;
    }
    EXPECT_EQ(rows, 14);
}

TEST(BandPlan, AttenuatorFollowsTheReferenceLevelUnlessItIsAskedFor) {
    struct Case {
        double levelDbm;
        int requested, index;
    };
    const Case cases[] = {
        {-1000, -1, 0}, {-20, -1, 0}, {-19.99, -1, 1}, {-15, -1, 1}, {-14.9, -1, 2},
        {-10, -1, 2},   {-5, -1, 3},  {0, -1, 4},      {5, -1, 5},   {5.01, -1, 6},
        {NAN, -1, 6},   {-20, 6, 6},  {30, 0, 0},      {30, 3, 3},
    };
    for (const Case& c : cases)
        EXPECT_EQ(attenuatorIndexFor(c.levelDbm, c.requested), c.index) << c.levelDbm << ' ' << c.requested;
}

}  // namespace
}  // namespace hxr
