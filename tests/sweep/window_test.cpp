#include "sweep/window.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace hxr {
namespace {

TEST(SweepWindow, AgreesWithAnEvaluationElsewhere) {
    // Length 1001: the formulas, from whose values the single-precision cosines of the first two kinds part by up to 2e-6,
    // and below these the same kinds with each step rounded.
    const struct {
        int kind;
        std::size_t entry;
        double value, tolerance;
    } rows[] = {
        {windowFlatTop, 0, 0.0, 1e-15},
        {windowFlatTop, 1, -3.67185324336e-6, 1e-6},
        {windowFlatTop, 250, -0.262, 2e-6},
        {windowFlatTop, 500, 4.636, 1e-6},
        {windowNuttall, 0, 0.0, 1e-15},
        {windowNuttall, 1, 4.71897959277e-7, 1e-7},
        {windowNuttall, 250, 0.211536, 1e-6},
        {windowNuttall, 500, 1.0, 1e-7},
        {windowConfinedGaussian, 0, 4.82140925811423e-5, 1e-15},
        {windowConfinedGaussian, 1, 0.000144665133945227, 1e-15},
        {windowConfinedGaussian, 250, 0.210265689116263, 1e-14},
        {windowConfinedGaussian, 500, 0.999999999972224, 1e-14},
        {windowConfinedGaussian, 999, 0.000144665133945227, 1e-14},
        {7, 500, 4.636, 1e-6},
        // Angle in double and rounded; cosine rounded; terms and sum in double.
        {windowFlatTop, 1, -3.726720809942019e-06, 1e-14},
        {windowFlatTop, 123, -0.11348236353695379, 1e-14},
        {windowFlatTop, 377, 2.1223886320665475, 1e-14},
        {windowFlatTop, 700, 0.24752500516176212, 1e-14},
        {windowNuttall, 1, 4.6375966071023067e-07, 1e-14},
        {windowNuttall, 123, 0.019018116059958935, 1e-14},
        {windowNuttall, 377, 0.6997669998319447, 1e-14},
        {windowNuttall, 700, 0.37949871889030934, 1e-14},
    };
    for (const auto& row : rows) {
        std::vector<double> window(1001);
        fillWindow(row.kind, window);
        EXPECT_NEAR(window[row.entry], row.value, row.tolerance) << "kind " << row.kind << ", " << row.entry;
    }
}

TEST(SweepWindow, IsScaledInSinglePrecision) {
    // Length 1024, of which 23 are padding. Evaluated elsewhere, each step rounded; with the gain in double precision most
    // of these would be one unit off.
    const struct {
        int kind;
        float at123, at377, at500, at700;
    } rows[] = {
        {windowFlatTop, -0.116205946F, 2.17332602F, 4.74726439F, 0.253465623F},
        {windowNuttall, 0.0547394641F, 2.01412535F, 2.87828016F, 1.09230363F},
        {windowConfinedGaussian, 0.0831074566F, 1.98007452F, 2.88811541F, 1.0646019F},
    };
    for (const auto& row : rows) {
        std::vector<cf32> window(1024);
        buildSweepWindow(row.kind, 23, window);
        EXPECT_EQ(window[123].re, row.at123) << row.kind;
        EXPECT_EQ(window[377].re, row.at377) << row.kind;
        EXPECT_EQ(window[500].re, row.at500) << row.kind;
        EXPECT_EQ(window[700].re, row.at700) << row.kind;
    }
}

TEST(SweepWindow, HasAMeanOfOneWithItsPadding) {
    for (const int kind : {windowFlatTop, windowNuttall, windowConfinedGaussian}) {
        std::vector<cf32> window(4096, cf32{9.0F, 9.0F});
        buildSweepWindow(kind, 1096, window);
        double sum = 0.0;
        for (std::size_t i = 0; i < window.size(); ++i) {
            sum += double{window[i].re};
            EXPECT_EQ(window[i].im, 0.0F);
            if (i >= 3000) {
                EXPECT_EQ(window[i].re, 0.0F);
            }
        }
        EXPECT_NEAR(sum / 4096.0, 1.0, 2e-7) << kind;
        EXPECT_NEAR(window[700].re, window[2999 - 700].re, 2e-6) << "symmetry of kind " << kind;
    }
}

}  // namespace
}  // namespace hxr
