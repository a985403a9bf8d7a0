#include "stream/filter_design.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace hxr {
namespace {

/// Gain in dB of symmetric taps at a frequency given as a fraction of their sample rate.
template <typename Taps>
double gainDb(const Taps& taps, double frequency) {
    std::complex<double> sum = 0.0, dc = 0.0;
    for (std::size_t n = 0; n < taps.size(); ++n) {
        sum += static_cast<double>(taps[n]) *
               std::polar(1.0, -2.0 * std::numbers::pi * frequency * static_cast<double>(n));
        dc += static_cast<double>(taps[n]);
    }
    return 20.0 * std::log10(std::abs(sum / dc));
}

TEST(StoredDecimationFilter, HasItsPublishedResponse) {
    std::vector<double> taps(defaultDecimationWords.begin(), defaultDecimationWords.end());
    for (std::size_t k = 93; k < 94; --k) taps.push_back(defaultDecimationWords[k]);
    ASSERT_EQ(taps.size(), decimationTaps);
    double sum = 0.0;
    for (const double tap : taps) sum += tap;
    EXPECT_EQ(sum, 524284.0);
    // Two words that changed against each other would leave the sum as it is, but not this one.
    double weighted = 0.0;
    for (std::size_t k = 0; k < decimationWords; ++k) weighted += static_cast<double>(k + 1) * taps[k];
    EXPECT_EQ(weighted, 29164672.0);
    // Frequencies are in units of the output rate, a fifth of the input's.
    for (double f = 0.0; f < 0.39; f += 0.005) EXPECT_NEAR(gainDb(taps, f / 5), 0.0, 0.002) << f;
    EXPECT_NEAR(gainDb(taps, 0.40 / 5), -0.03, 0.005);
    EXPECT_NEAR(gainDb(taps, 0.45 / 5), -4.4, 0.05);
    EXPECT_NEAR(gainDb(taps, 0.50 / 5), -30.7, 0.05);
    // Before its taps were cut to whole words the filter stopped 94 dB; errors of up to 2^-19 in 189 taps
    // leave 86.
    for (double f = 0.55; f < 2.5; f += 0.003) EXPECT_LT(gainDb(taps, f / 5), -86.0) << f;
}

TEST(DesignedDecimationFilter, FollowsTheBandwidthDownToItsLeast) {
    const struct {
        double ratio;
        std::size_t tap;
        double value;
    } rows[] = {
        {0.7999, 60, 0.0017300295405385726}, {0.7999, 90, 0.060782174982224956},
        {0.7999, 94, 0.17997995639689374},   {0.02, 60, 0.0026249558679917125},
        {0.02, 94, 0.024401527094657264},    {0.001, 94, 0.024401527094657264},
    };
    for (const auto& row : rows) {
        double taps[decimationTaps];
        designDecimationTaps(row.ratio, taps);
        EXPECT_NEAR(taps[row.tap], row.value, 1e-15) << row.ratio << " tap " << row.tap;
    }
}

TEST(HostFilter, PassesTheBandAndStopsWhatWouldFoldIntoIt) {
    const std::vector<cf32> example = designHostTaps(4e6, 4, 2);
    ASSERT_EQ(example.size(), 129U);
    EXPECT_EQ(example[64].re, static_cast<float>(0.31999999690860145));
    EXPECT_EQ(example[40].re, static_cast<float>(-0.0053508016906528891));

    for (const int decimation : {2, 8, 64}) {
        const double rate = 12.5e6, bandwidth = 0.8 * rate / decimation;
        std::vector<float> taps;
        for (const cf32& tap : designHostTaps(bandwidth, 4, decimation)) {
            taps.push_back(tap.re);
            EXPECT_EQ(tap.im, 0.0F);
        }
        ASSERT_EQ(taps.size(), static_cast<std::size_t>(64 * decimation + 1));
        EXPECT_NEAR(gainDb(taps, 0.8 * bandwidth / 2 / rate), 0.0, 0.01) << decimation;
        EXPECT_NEAR(gainDb(taps, bandwidth / 2 / rate), -6.02, 0.05) << decimation;
        EXPECT_LT(gainDb(taps, 0.5 * rate / decimation / rate), -70.0) << decimation;
    }
}

}  // namespace
}  // namespace hxr
