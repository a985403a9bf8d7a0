#include "sim/stream_samples.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "cal/correction_lookup.h"
#include "capture_support.h"
#include "sim/sources.h"
#include "stream/stream_plan.h"
#include "support/scripted_unit.h"
#include "support/sequencer_fixture.h"

namespace hxr::sim {
namespace {

using test::decibels;
using test::lineAt;
using test::Samples;

constexpr std::int64_t someTime = 85'000'000'000'000'123;  // in 2023
constexpr std::array<std::size_t, 2> inputs = {0, 3};

/// An imperfect unit that is told by the driver's plans what to stream, with the driver's corrections.
struct StreamSamplesTest : test::SequencerFixture {
    StreamSamplesTest() {
        const auto bytes = makeSyntheticImage({});
        image = std::make_shared<const std::vector<std::uint8_t>>(bytes);
        std::memcpy(device().corrections->image.get(), bytes.data(), bytes.size());
        updateTemperature(*device().corrections, static_cast<float>(temperature));
        device().streamActive = true;
        for (const std::size_t input : inputs) device().channelEnabled[input] = true;
        run(test::sharedImage());
        for (std::uint32_t input = 0; input < 4; ++input) {
            run(test::lowImage(0x41 + input));
            run(test::highImage(0x9 + input));
        }
    }

    HXRDevice& device() { return *driver.device; }

    void tune(double hz, bool shared) {
        device().sharedFreq = hz;
        for (const std::size_t input : inputs) {
            device().channelShared[input] = shared;
            device().channelFreq[input] = hz;
        }
    }

    /// Runs the plan of a unit that streams both inputs.
    static void runPlan(Sequencer& unit, const CommandList& config, int decimation) {
        for (std::size_t p = 0; p < config.packetCount(); ++p) unit.runControlPacket(config.packet(p));
        const std::uint32_t code = decimation == 4 ? 3 : static_cast<std::uint32_t>(decimation);
        unit.runControlPacket(test::Words{0x0F003009 | code << 8});
    }

    /// What a unit's stream makes of a scene: a packet of each input.
    std::array<Samples, 2> hear(const Sequencer& unit, const Scene& scene, const StreamStart& start,
                                std::size_t loopTurns = 0) {
        const StreamReception reception{
            unit.state(), std::shared_ptr<const Scene>(std::shared_ptr<void>{}, &scene), image, temperature};
        const auto samples = StreamSamples::make(StreamContent::scene, reception, start, captures, loopTurns);
        std::array<Samples, 2> result;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            std::array<std::uint8_t, dataPayloadBytes> payload;
            trailer = samples->fill(inputs[i], firstSample, payload);
            result[i] = test::samplesOf(payload);
        }
        return result;
    }

    std::array<Samples, 2> listen(const Scene& scene, int decimation = 1) {
        device().decimation = device().hardwareDecimation = decimation;
        device().hardwareBandwidth = device().outputBandwidth = bandwidth;
        driver.answer(test::StatusDatagram());
        runPlan(sequencer, planStream(device())[0].config, decimation);
        return hear(sequencer, scene, {someTime, 1.0, {}});
    }

    std::array<Samples, 2> listenToTone(double hz, double dbm, int decimation = 1) {
        Scene scene;
        scene.with<Tone>(hz, dbm);
        return listen(scene, decimation);
    }

    double levelOf(const Samples& samples, std::size_t i, double hz, int decimation) {
        return decibels(std::abs(lineAt(samples, hz * decimation)) * device().streamCorrection[inputs[i]]);
    }

    test::TestClock clock;
    test::ScriptedUnit driver{clock};
    UnitCalibration::Image image;
    double temperature = 41.25;
    double bandwidth = 40e6;
    std::uint64_t firstSample = 2048;
    CaptureMaker captures;
    std::uint32_t trailer = 0;
};

TEST_F(StreamSamplesTest, TheLoadedFilterCutsLinesAndNoiseAlike) {
    constexpr double hz = 2.4e9;
    tune(hz, false);
    bandwidth = 4e6;
    for (const int decimation : {1, 4}) {
        const double rate = 50e6 / decimation;
        Scene scene;
        scene.with<WhiteNoise>(-120.0);
        constexpr std::size_t points = 25, length = 64;
        std::array<double, points> density{};
        for (int block = 0; block < 40; ++block) {
            firstSample = 2048 * static_cast<std::uint64_t>(block);
            const Samples samples = listen(scene, decimation)[0];
            for (std::size_t p = 0; p < points; ++p) {
                for (std::size_t from = 0; from < 2048; from += length) {
                    const Samples part(samples.begin() + static_cast<std::ptrdiff_t>(from),
                                       samples.begin() + static_cast<std::ptrdiff_t>(from + length));
                    const double place = (static_cast<double>(p) / (points - 1) - 0.5) * 0.9;
                    density[p] += std::norm(lineAt(part, place * 50e6)) / (40 * 2048 / length);
                }
            }
        }
        for (std::size_t p = 0; p < points; ++p) {
            const double at = (static_cast<double>(p) / (points - 1) - 0.5) * 0.9 * rate;
            // The window's own width blurs what is close to the slope.
            const double blur = 4.0 * rate / length, edge = (bandwidth + 0.1 * rate) / 2;
            if (std::abs(std::abs(at) - edge) < blur) continue;
            const double line = levelOf(listenToTone(hz + at, -30, decimation)[0], 0, at, decimation);
            const double level = 10 * std::log10(density[p]) + decibels(device().streamCorrection[0]);
            if (std::abs(at) < edge) {
                EXPECT_NEAR(line, -30, 0.1) << at;
                EXPECT_NEAR(level, -120 + 10 * std::log10(2.0044 * rate / length), 0.7) << at;
            } else {
                EXPECT_LT(line, -90) << at;
                EXPECT_LT(level, -90) << at;
            }
        }
    }
}

TEST_F(StreamSamplesTest, WhatIsTooStrongIsToldAndTheMarkerStaysLow) {
    tune(2.4e9, true);
    for (const double dbm : {-30.0, 20.0}) {
        const auto samples = listenToTone(2.4e9 + 3e6, dbm);
        EXPECT_EQ(trailer, dbm > 0 ? StreamWarning::overRange : 0u);
        for (const auto& sample : samples[0]) {
            const auto i = std::lround(sample.real() * 32768), q = std::lround(sample.imag() * 32768);
            ASSERT_EQ((i ^ q) & 1, 0);
        }
    }
}

TEST_F(StreamSamplesTest, ALoopBringsItsTurnsAgain) {
    tune(2.4e9, true);
    Scene scene;
    scene.with<FmTone>(2.4e9, -30.0, 1e3, 75e3);
    listen(scene);
    const auto turn = [&](std::uint64_t number, std::size_t loopTurns) {
        firstSample = 2048 * number;
        return hear(sequencer, scene, {someTime, 1.0, {}}, loopTurns)[1];
    };
    EXPECT_EQ(turn(7, 3), turn(1, 0));
    EXPECT_NE(turn(7, 0), turn(1, 0));
}

}  // namespace
}  // namespace hxr::sim
