/// Sweeps of signals in the air: where they stand in the trace, how high, and what else stands there.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <numeric>
#include <random>
#include <span>
#include <vector>

#include "sim/sources.h"
#include "support/swept_air.h"

namespace hxr {
namespace {

using sim::Scene;
using sim::WhiteNoise;
using test::Line;
using test::SweepSettings;
using test::Trace;
using Air = test::SweptAir;

constexpr double lowestHz = 100e3, highestHz = 20e9;

/// Where the trace goes over from one capture to the next.
std::vector<double> cuts() {
    constexpr double unit = 50e6 / 64;
    std::vector<double> edges;
    double edge = -5 * unit;
    for (const int bins : {50, 10, 27, 13, 24, 26, 38, 12, 50, 11, 39, 50, 26, 24})
        edges.push_back(edge += bins * unit);
    while (edge + 50 * unit < highestHz) edges.push_back(edge += 50 * unit);
    return edges;
}

/// A line of random level in each of so many equal parts of a range, apart from the parts' ends.
std::vector<Line> scattered(double fromHz, double toHz, int count, std::uint32_t seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> place(0.1, 0.9), level(-70, -36);
    std::vector<Line> lines;
    const double part = (toHz - fromHz) / count;
    for (int i = 0; i < count; ++i)
        lines.push_back({fromHz + (i + place(generator)) * part, level(generator)});
    return lines;
}

/// The largest error of lines' levels, each looked for within some bins of its place, with the frequencies in order.
double worstLevelError(const Trace& trace, const std::vector<Line>& lines, double bins = 20) {
    double worst = 0;
    for (const Line& line : lines) {
        const auto [hz, dbm] = trace.lineNear(line.hz, bins);
        EXPECT_NEAR(hz, line.hz, trace.binHz) << line.dbm;
        worst = std::max(worst, std::abs(dbm - line.dbm));
    }
    return worst;
}

TEST_F(Air, LinesStandWhereTheyAreAndAsHighAtAnyTemperature) {
    for (const double temperature : {-22.0, 31.5, 58.0}) {
        unitAt(temperature);
        const auto seed = static_cast<std::uint32_t>(temperature + 100);
        for (const auto& [from, to, count, rbw] :
             {std::tuple(lowestHz, 320e6, 60, 10e3), std::tuple(320e6, highestHz, 400, 100e3)}) {
            const std::vector<Line> lines = scattered(from, to, count, seed);
            hear(lines);
            initiate({.startHz = from, .stopHz = to, .rbwHz = rbw, .vbwHz = rbw});
            EXPECT_LT(worstLevelError(take(), lines), 0.1) << temperature;

            // Corrections for another temperature than the unit's show at once.
            units.back()->changeHealth(
                [](sim::Health& health) { health.temperatureA += health.temperatureA < 20 ? 20 : -20; });
            EXPECT_GT(worstLevelError(take(hxrTempDriftWarning), lines), 0.2) << temperature;
            units.back()->changeHealth([&](sim::Health& health) { health.temperatureA = temperature; });
        }
        hxrCloseDevice(handle);
        units.back()->stop();
    }
}

TEST_F(Air, LinesOnEitherSideOfEveryCutAreAsHigh) {
    unitAt(40);
    constexpr double binHz = 50e6 / 2048;
    for (const double bins : {-10.5, -2.5, 2.5, 10.5}) {
        std::vector<Line> lines;
        for (const double cut : cuts()) lines.push_back({cut + bins * binHz, -40});
        hear(lines);
        const Trace trace = sweep({.startHz = lowestHz, .stopHz = highestHz});
        ASSERT_EQ(trace.binHz, binHz);
        EXPECT_LT(worstLevelError(trace, lines, 6), 0.1) << bins;
    }
}

TEST_F(Air, NothingElseStandsInTheTrace) {
    unitAt(22);
    for (const double startHz : {lowestHz, 310e6, 5e9, 12e9}) {
        std::vector<Line> lines = scattered(startHz, startHz + 300e6, 4, 5);
        for (Line& line : lines) line.dbm = -20;
        hear(lines);
        const Trace trace =
            sweep({.startHz = startHz, .stopHz = startHz + 300e6, .rbwHz = 30e3, .vbwHz = 30e3});
        float highest = -300;
        for (std::size_t bin = 0; bin < trace.levels.size(); ++bin) {
            const auto isAt = [hz = trace.frequency(bin)](const Line& line) {
                return std::abs(hz - line.hz) < 300e3;
            };
            if (std::ranges::none_of(lines, isAt)) highest = std::max(highest, trace.levels[bin]);
        }
        EXPECT_LT(highest, -20 - 75) << startHz;
    }
}

TEST_F(Air, WindowsDifferByTheirScalloping) {
    unitAt(22);
    struct Case {
        unsigned window;
        double mostDb;  // that a line between bins falls short of
    };
    for (const auto& [window, mostDb] : {Case{0, 0.03}, Case{1, 0.9}, Case{2, 0.9}}) {
        for (const int eighth : {0, 1, 2, 3, 4}) {
            const Line line{1.2345e9 + eighth * 50e6 / 2048 / 8, -30};
            hear({line});
            const Trace trace = sweep({.startHz = 1.2e9, .stopHz = 1.25e9, .window = window});
            const auto [hz, dbm] = trace.lineNear(line.hz, 10);
            EXPECT_NEAR(hz, line.hz, trace.binHz) << window;
            EXPECT_LT(dbm, line.dbm + 0.05) << window;
            EXPECT_GT(dbm, line.dbm - mostDb) << window;
        }
    }
}

TEST_F(Air, UnitsDetectorsAndScalesAgreeOnALine) {
    unitAt(25);
    const double dbm = -35;
    hear({{2.5e9, dbm}});
    SweepSettings settings{.startHz = 2.49e9, .stopHz = 2.51e9, .attenuator = 2};
    double ofFullScale = 0;
    for (const unsigned videoUnits : {0, 1, 2, 3}) {
        for (const unsigned detector : {0, 1, 2}) {
            for (const double vbwHz : {100e3, 25e3}) {
                settings.vbwHz = vbwHz;
                settings.detector = detector;
                settings.videoUnits = videoUnits;
                std::array<double, 3> levels{};
                for (const unsigned scale : {0, 1, 2}) {
                    hxrAbort(handle);
                    ASSERT_EQ(hxrSetSweepScale(handle, scale), hxrNoError);
                    levels[scale] = sweep(settings).highest(2.4999e9, 2.5001e9);
                }
                EXPECT_NEAR(levels[0], dbm, 0.02) << videoUnits << ' ' << detector;
                EXPECT_NEAR(levels[1], std::sqrt(50e3) * std::pow(10, dbm / 20), 0.01)
                    << videoUnits << ' ' << detector;
                if (ofFullScale == 0) ofFullScale = levels[2];
                EXPECT_NEAR(levels[2], ofFullScale, 0.02) << videoUnits << ' ' << detector;
            }
        }
    }
}

TEST_F(Air, EveryChannelAndAttenuatorReadsTheSame) {
    unitAt(25);
    startUnit();
    const std::vector<Line> lines{{60e6, -31}, {2.5e9, -30}, {17.7e9, -32}};
    hear(lines);  // the second unit
    units[0]->setScene(units[1]->scene());
    ASSERT_EQ(pair(1), hxrNoError);
    for (int channel = 0; channel < 8; ++channel) {
        for (const Line& line : lines) {
            const Trace trace = sweep({.startHz = line.hz - 15e6,
                                       .stopHz = line.hz + 15e6,
                                       .channel = channel,
                                       .attenuator = channel % 7});
            EXPECT_LT(worstLevelError(trace, {line}), 0.1) << channel;
        }
    }
}

TEST_F(Air, TooStrongALineIsAnOverflow) {
    unitAt(25);
    hear({{2.5e9, -5}});
    initiate({.startHz = 2.49e9, .stopHz = 2.51e9});
    take(hxrADCOverflow);
    initiate({.startHz = 2.49e9, .stopHz = 2.51e9, .attenuator = 3});
    EXPECT_NEAR(take().highest(2.4999e9, 2.5001e9), -5, 0.1);
}

TEST_F(Air, TimebaseOnTrimPutsALineInItsBin) {
    sim::SimulatedUnit& unit = unitAt(25);
    const double hz = 19.5e9;
    hear({{hz, -40}});
    const SweepSettings settings{.startHz = hz - 1e6, .stopHz = hz + 1e6, .rbwHz = 1e3, .vbwHz = 1e3};
    initiate(settings);
    const std::uint16_t dac = unit.state().timebaseDac;
    unit.setOscillator({.trueDac = dac});
    Trace trace = take();
    EXPECT_NEAR(trace.lineNear(hz, 1000).hz, hz, trace.binHz);

    // Off its trim the same shows.
    unit.setOscillator({.trueDac = static_cast<std::uint16_t>(dac + 1000)});
    trace = take();
    EXPECT_GT(std::abs(trace.lineNear(hz, 1000).hz - hz), 10 * trace.binHz);
}

TEST_F(Air, NoiseIsLevelOverEveryCut) {
    unitAt(30);
    constexpr double density = -130;
    auto scene = std::make_shared<Scene>();
    scene->with<WhiteNoise>(density);
    units.back()->setScene(scene);
    const Trace trace = sweep({.startHz = lowestHz,
                               .stopHz = highestHz,
                               .rbwHz = 300e3,
                               .vbwHz = 1e3,
                               .detector = 0,
                               .videoUnits = 2});
    const auto powerOf = [](std::span<const float> part) {
        const double sum = std::accumulate(part.begin(), part.end(), 0.0, [](double total, float level) {
            return total + std::pow(10, level / 10);
        });
        return 10 * std::log10(sum / static_cast<double>(part.size()));
    };
    EXPECT_NEAR(powerOf(trace.levels), density + 10 * std::log10(trace.rbwHz), 0.05);

    // How far the levels on either side of a place are apart: at a cut no farther than half a capture away from it.
    constexpr double reachHz = 5e6;
    const auto stepAt = [&](double hz) {
        return powerOf(trace.between(hz, hz + reachHz)) - powerOf(trace.between(hz - reachHz, hz));
    };
    double atCuts = 0, between = 0, worst = 0;
    int count = 0;
    for (const double cut : cuts()) {
        constexpr double plainHz = 310e6, halfCaptureHz = 50e6 * 25 / 64;
        if (cut < plainHz || cut + halfCaptureHz + reachHz > highestHz) continue;
        atCuts += std::pow(stepAt(cut), 2);
        between += std::pow(stepAt(cut + halfCaptureHz), 2);
        worst = std::max(worst, std::abs(stepAt(cut)));
        ++count;
    }
    const double deviation = std::sqrt(between / count);
    EXPECT_LT(worst, 6 * deviation);
    EXPECT_LT(std::sqrt(atCuts / count), 1.25 * deviation);
}

}  // namespace
}  // namespace hxr
