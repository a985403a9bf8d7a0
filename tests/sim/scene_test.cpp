#include "sim/scene.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <vector>

#include "capture_support.h"
#include "sim/ofdm.h"
#include "sim/scene_text.h"
#include "sim/sources.h"

namespace hxr::sim {
namespace {

using test::lineAt;
using test::listen;
using test::Samples;

constexpr std::int64_t someTime = 85'000'000'000'000'000;

TEST(Sources, GoOnWithoutASeamFromOneStretchToTheNext) {
    const std::unique_ptr<Source> sources[] = {std::make_unique<Tone>(1.0012345e9, 0.0),
                                               std::make_unique<AmTone>(0.99e9, 0.0, 300e3, 0.5),
                                               std::make_unique<FmTone>(1.01e9, 0.0, 40e3, 2e6),
                                               std::make_unique<PulsedTone>(0.985e9, 0.0, 3e-6, 11e-6),
                                               std::make_unique<WhiteNoise>(-77.0),
                                               std::make_unique<Ofdm>(1.004e9, 0.0, OfdmGrid::ofWidth(18e6)),
                                               std::make_unique<Ofdm>(1.021e9, 0.0, OfdmGrid::ofWidth(18e6))};
    for (const auto& source : sources) {
        const Samples whole = listen(*source, 1e9, someTime, 4096);
        const Samples part = listen(*source, 1e9, someTime + 1001, 777);
        double power = 0;
        for (const auto& sample : whole) power += std::norm(sample) / 4096;
        EXPECT_GT(power, 0.1) << &source - sources;
        for (std::size_t n = 0; n < part.size(); ++n)
            ASSERT_NEAR(std::abs(part[n] - whole[n + 1001]), 0, 1e-5) << &source - sources << " " << n;
    }
}

TEST(Sources, HaveTheSpectrumOfTheirModulation) {
    const double modulationHz = 50e6 / 128;
    const Samples am = listen(AmTone(1e9, -6.0206, modulationHz, 0.6), 1.002e9, someTime, 4096);
    EXPECT_NEAR(std::abs(lineAt(am, -2e6)), 0.5, 1e-4);
    for (const double side : {-1.0, 1.0})
        EXPECT_NEAR(std::abs(lineAt(am, -2e6 + side * modulationHz)), 0.15, 1e-4);

    // A modulation index of 1.5: the lines are Bessel functions of it.
    const Samples fm = listen(FmTone(1e9, 0.0, modulationHz, 1.5 * modulationHz), 0.997e9, someTime, 4096);
    for (int line = -3; line <= 3; ++line) {
        EXPECT_NEAR(std::abs(lineAt(fm, 3e6 + line * modulationHz)), std::cyl_bessel_j(std::abs(line), 1.5),
                    1e-4)
            << line;
    }
}

TEST(Sources, PulsesKeepTheirWidthPeriodAndCarrier) {
    const Samples pulses = listen(PulsedTone(1e9, 0.0, 1e-6, 4e-6), 0.9e9, someTime / 200 * 200, 1000);
    const Samples carrier = listen(Tone(1e9, 0.0), 0.9e9, someTime / 200 * 200, 1000);
    for (std::size_t n = 0; n < pulses.size(); ++n) {
        const std::complex<double> expected = n % 200 < 50 ? carrier[n] : 0.0;
        ASSERT_NEAR(std::abs(pulses[n] - expected), 0, 1e-6) << n;
    }
}

TEST(Sources, TonesAreTakenFromText) {
    const struct {
        const char* text;
        double hz;
    } cases[] = {{"100k:-30", 100e3}, {"2.4G:0", 2.4e9}, {"27.12M:-5.5", 27.12e6}, {"440:3", 440.0}};
    for (const auto& test : cases) {
        Scene scene;
        addToneFromText(scene, test.text);
        ASSERT_EQ(scene.sources().size(), 1u);
        EXPECT_DOUBLE_EQ(scene.sources()[0]->centreHz(), test.hz);
    }
    Scene scene;
    for (const char* text : {"", ":", "100k", "1x:3", "-5:3", "5:", "5:3dBm", "G:3", "nan:1"})
        EXPECT_THROW(addToneFromText(scene, text), std::invalid_argument) << text;
    EXPECT_TRUE(scene.empty());
}

}  // namespace
}  // namespace hxr::sim
