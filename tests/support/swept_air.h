/// Sweeps of what is in the air, and what stands in their traces.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "sim/sources.h"
#include "support/installation.h"

namespace hxr::test {

struct Line {
    double hz;
    double dbm;
};

struct Trace {
    std::vector<float> levels;
    double startHz;
    double binHz;
    double rbwHz;

    double frequency(std::size_t bin) const { return startHz + static_cast<double>(bin) * binHz; }
    std::size_t binAt(double hz) const {
        const double bin = std::round((hz - startHz) / binHz);
        return static_cast<std::size_t>(std::clamp(bin, 0.0, static_cast<double>(levels.size() - 1)));
    }
    std::span<const float> between(double fromHz, double toHz) const {
        return std::span(levels).subspan(binAt(fromHz), binAt(toHz) - binAt(fromHz) + 1);
    }
    float highest(double fromHz, double toHz) const { return std::ranges::max(between(fromHz, toHz)); }

    /// The strongest line within some bins of a frequency: its level, and the middle of its top 3 dB.
    Line lineNear(double hz, double bins) const {
        const std::size_t from = binAt(hz - bins * binHz);
        const auto near = between(hz - bins * binHz, hz + bins * binHz);
        const auto peak = from + static_cast<std::size_t>(std::ranges::max_element(near) - near.begin());
        constexpr float top = 3;
        std::size_t first = peak, last = peak;
        while (first > 0 && levels[first - 1] > levels[peak] - top) --first;
        while (last + 1 < levels.size() && levels[last + 1] > levels[peak] - top) ++last;
        return {(frequency(first) + frequency(last)) / 2, levels[peak]};
    }
};

struct SweepSettings {
    double startHz, stopHz;
    double rbwHz = 100e3;
    double vbwHz = 100e3;
    unsigned window = 0;
    unsigned detector = 0, videoUnits = 0;
    int channel = 0;
    int attenuator = 0;
};

/// A unit that sweeps what is in the air.
class SweptAir : public Installation {
  protected:
    /// Connects to a unit that is as warm as told.
    sim::SimulatedUnit& unitAt(double temperature, sim::UnitOptions options = {}) {
        options.health.temperatureA = temperature;
        sim::SimulatedUnit& unit = startUnit(std::move(options));
        EXPECT_EQ(connect(static_cast<int>(units.size()) - 1), hxrNoError);
        return unit;
    }

    void hear(const std::vector<Line>& lines) {
        auto scene = std::make_shared<sim::Scene>();
        for (const Line& line : lines) scene->with<sim::Tone>(line.hz, line.dbm);
        units.back()->setScene(scene);
    }

    void initiate(const SweepSettings& settings) {
        hxrAbort(handle);
        // The temperature that a sweep is held against is the last that was known ahead of it.
        clock.advance(std::chrono::seconds(2));
        ASSERT_EQ(hxrGetDeviceDiagnostics(handle, nullptr, nullptr, nullptr), hxrNoError);
        std::array<int, 16> enabled{};
        enabled[static_cast<std::size_t>(settings.channel)] = 1;
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), settings.channel), hxrNoError);
        ASSERT_EQ(hxrSetSweepAtten(handle, settings.attenuator), hxrNoError);
        ASSERT_GE(hxrSetSweepCoupling(handle, settings.rbwHz, settings.vbwHz, 1e-6), hxrNoError);
        ASSERT_EQ(hxrSetSweepStartStop(handle, settings.startHz, settings.stopHz), hxrNoError);
        ASSERT_EQ(hxrSetSweepWindow(handle, settings.window), hxrNoError);
        ASSERT_EQ(hxrSetSweepDetector(handle, settings.detector, settings.videoUnits), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    }

    /// Takes a sweep of an initiated unit.
    Trace take(HXRStatus expected = hxrNoError) {
        Trace trace{};
        int points = 0;
        EXPECT_EQ(hxrSweepGetParameters(handle, &trace.rbwHz, nullptr, &trace.startHz, &trace.binHz, &points),
                  hxrNoError);
        trace.levels.resize(static_cast<std::size_t>(points));
        EXPECT_EQ(hxrGetSweep(handle, trace.levels.data()), expected);
        return trace;
    }

    Trace sweep(const SweepSettings& settings) {
        initiate(settings);
        return take();
    }
};

}  // namespace hxr::test
