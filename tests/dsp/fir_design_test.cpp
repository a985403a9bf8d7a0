#include "dsp/fir_design.h"

#include <gtest/gtest.h>

#include <vector>

namespace hxr {
namespace {

TEST(FirDesign, AgreesWithAnEvaluationInThirtyDigits) {
    const struct {
        float cutoff;
        std::size_t length;
        FirWindow window;
        std::size_t tap;
        double value;
    } rows[] = {
        {0.16F, 129, FirWindow::blackman, 0, 0.0},
        {0.16F, 129, FirWindow::blackman, 1, 0.0},
        {0.16F, 129, FirWindow::blackman, 40, -0.0053508016906528891},
        {0.16F, 129, FirWindow::blackman, 61, 0.013154688938164792},
        {0.16F, 129, FirWindow::blackman, 64, 0.31999999690860145},
        // 0.45 is 0.449999988079071 in single precision; with the exact value the centre would be 0.90421951.
        {0.45F, 63, FirWindow::rectangular, 0, -0.0031879042534082816},
        {0.45F, 63, FirWindow::rectangular, 30, 0.098824348418046734},
        {0.45F, 63, FirWindow::rectangular, 31, 0.90421949458780619},
    };
    for (const auto& row : rows) {
        std::vector<double> taps(row.length);
        designLowpass(row.cutoff, taps, row.window);
        EXPECT_NEAR(taps[row.tap], row.value, 1e-15) << row.length << " taps, tap " << row.tap;
        EXPECT_NEAR(taps[row.length - 1 - row.tap], row.value, 1e-15) << "mirrored";
    }
}

TEST(FirDesign, LeavesTheGainAloneUnlessAsked) {
    std::vector<double> plain(5), normalised(5);
    firDesignLowpass(0.25, plain, FirWindow::rectangular, false);
    firDesignLowpass(0.25, normalised, FirWindow::rectangular, true);
    // 0.5 sinc(k / 2): 0 at even distances from the centre, 1 / pi at distance 1.
    const double expected[] = {0.0, 0.318309886183790672, 0.5, 0.318309886183790672, 0.0};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_NEAR(plain[i], expected[i], 1e-16);
        EXPECT_NEAR(normalised[i], expected[i] / 1.136619772367581343, 1e-16);
    }
}

}  // namespace
}  // namespace hxr
