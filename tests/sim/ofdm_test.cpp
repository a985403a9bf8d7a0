#include "sim/ofdm.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

#include "capture_support.h"

namespace hxr::sim {
namespace {

using test::decibels;
using test::lineAt;
using test::listen;

constexpr std::int64_t someTime = 85'000'000'000'000'123;

/// Power in 1 Hz at a frequency, the mean of many looks, in dBm.
double densityAt(const Source& source, double centreHz, double hz) {
    constexpr std::size_t looks = 300, count = 512;
    constexpr double windowBins = 2.004;
    double power = 0.0;
    for (std::size_t look = 0; look < looks; ++look) {
        const auto first = someTime + static_cast<std::int64_t>(look * count);
        power += std::norm(lineAt(listen(source, centreHz, first, count), hz - centreHz)) / looks;
    }
    return 10.0 * std::log10(power / (windowBins * 50e6 / count) + 1e-30);
}

TEST(Ofdm, IsFlatOverItsWidthWithSteepFlanksAndSilenceBeyond) {
    for (const double widthHz : {5e6, 18e6, 40e6}) {
        const Ofdm source(2.14e9, -10.0, OfdmGrid::ofWidth(widthHz));
        const double centreHz = 2.1402e9;
        double power = 0.0;
        const auto samples = listen(source, centreHz, someTime, 60'000);
        for (const auto& sample : samples) power += std::norm(sample) / static_cast<double>(samples.size());
        EXPECT_NEAR(10.0 * std::log10(power), -10.0, 0.1) << widthHz;

        const double top = -10.0 - 10.0 * std::log10(widthHz);
        for (const double part : {-0.97, -0.7, -0.31, 0.0, 0.005, 0.5, 0.97}) {
            const double hz = 2.14e9 + part * (0.5 * widthHz - 0.1e6);
            EXPECT_NEAR(densityAt(source, centreHz, hz), top, 1.0) << widthHz << " " << part;
        }
        for (const double side : {-1.0, 1.0}) {
            const double flankHz = 2.14e9 + side * 0.5 * widthHz;
            EXPECT_LT(densityAt(source, centreHz, flankHz + side * 0.5e6), top - 40) << widthHz;
            EXPECT_LT(densityAt(source, centreHz, flankHz + side * 2e6), top - 65) << widthHz;
        }
    }
}

TEST(Ofdm, IsCutAtTheEdgeOfTheStretchAndTheSameWithinIt) {
    const Ofdm source(2.14e9, 0.0, OfdmGrid::ofWidth(18e6));
    const double top = -10.0 * std::log10(18e6);
    for (const double offsetHz : {-33e6, -28e6, -20e6, 18e6, 26e6, 33.5e6}) {
        const double centreHz = 2.14e9 - offsetHz;
        const auto whole = listen(source, 2.14e9, someTime, 2048);
        const auto part = listen(source, centreHz, someTime, 2048);
        for (double hz = -19.5e6; hz <= 19.5e6; hz += 1.3e6) {
            const double fromMiddle = hz - offsetHz;
            if (std::abs(fromMiddle) > 25e6) continue;
            EXPECT_NEAR(std::abs(lineAt(part, hz)), std::abs(lineAt(whole, fromMiddle)), 1e-4)
                << offsetHz << " " << hz;
        }
        // Beyond the edge it would come back in from the other side.
        const double wrapped = std::copysign(23e6, -offsetHz);
        EXPECT_LT(densityAt(source, centreHz, centreHz + wrapped), top - 65) << offsetHz;
    }
    for (const auto& sample : listen(source, 2.14e9 + 60e6, someTime, 64)) EXPECT_EQ(sample, 0.0);
}

TEST(Ofdm, RefusesCarriersTooCloseOrTooMany) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const OfdmGrid& grid :
         {OfdmGrid{.spacingHz = 1.0}, OfdmGrid{.spacingHz = nan}, OfdmGrid{.sideCarriers = 1000},
          OfdmGrid{.prefix = 0.0}, OfdmGrid{.prefix = nan}, OfdmGrid::ofWidth(1e30)})
        EXPECT_THROW(Ofdm(1e9, 0.0, grid), std::invalid_argument);
}

}  // namespace
}  // namespace hxr::sim
