/// Streams of signals in the air: level, phase, delay and time of what arrives, and what the host's filter makes of it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "sim/sources.h"
#include "support/lines.h"
#include "support/streaming.h"

namespace hxr {
namespace {

using test::decibels;
using test::lineAt;
using test::Samples;

constexpr double turn = 2 * std::numbers::pi, degree = turn / 360;
constexpr std::size_t length = 2048;   ///< samples that a line is looked for in
constexpr std::size_t settling = 130;  ///< samples until the host's filter is filled

class StreamedAir : public test::Streaming {
  protected:
    void SetUp() override {
        options.health.temperatureA = 41.25;
        connectGroup(2, options);
    }

    void hear(const std::vector<double>& tones, double dbm = -30) {
        auto scene = std::make_shared<sim::Scene>();
        for (const double hz : tones) scene->with<sim::Tone>(hz, dbm);
        for (const auto& unit : units) unit->setScene(scene);
    }

    void tune(double hz, bool shared) {
        hxrAbort(handle);
        centreHz = hz;
        ASSERT_EQ(hxrSetSharedFreq(handle, hz), hxrNoError);
        for (int channel = 0; channel < 8; ++channel) {
            ASSERT_EQ(hxrSetChannelShared(handle, channel, shared ? 1 : 0), hxrNoError);
            ASSERT_EQ(hxrSetChannelFreq(handle, channel, hz), hxrNoError);
        }
    }

    /// Starts a stream and fetches the first samples behind the filter's rise.
    /// @return of the first of them, nanoseconds since 1970
    std::uint64_t listen(const std::vector<int>& channels, int decimation, bool asFloats = false) {
        hxrAbort(handle);
        EXPECT_EQ(hxrSetStreamDataType(handle, asFloats ? 1 : 0), hxrNoError);
        initiate(channels, decimation);
        rate = 50e6 / decimation;
        if (asFloats) {
            EXPECT_EQ(receiveFloats(settling).status, hxrNoError);
        } else {
            EXPECT_EQ(receive(settling).status, hxrNoError);
        }
        const Received received = asFloats ? receiveFloats(length) : receive(length);
        EXPECT_EQ(received.status, hxrNoError);
        heard.assign(channels.size(), Samples(length));
        for (std::size_t i = 0; i < heard.size(); ++i) {
            for (std::size_t n = 0; n < length; ++n) {
                heard[i][n] = asFloats
                                  ? Samples::value_type(floats[i][2 * n], floats[i][2 * n + 1])
                                  : Samples::value_type(samples[i][2 * n], samples[i][2 * n + 1]) / 32768.0;
            }
        }
        return received.time;
    }

    std::complex<double> line(std::size_t channel, double hz) const {
        return lineAt(heard[channel], hz - centreHz, rate);
    }

    sim::UnitOptions options;
    double centreHz = 0, rate = 0;
    std::vector<Samples> heard;
};

TEST_F(StreamedAir, LinesAreAsHighAsTheyAreAtEveryRate) {
    struct Case {
        double hz;
        bool shared;
        int nextDecimation;  ///< times the last
    };
    const Case cases[] = {{2.4e9, false, 2},   {2.4e9, true, 2}, {98.7654321e6, true, 8}, {12.34e9, true, 8},
                          {12.34e9, false, 8}, {31e6, true, 8},  {31e6, false, 8}};
    const std::vector<int> channels = {0, 3, 6};
    for (const auto& [hz, shared, next] : cases) {
        tune(hz, shared);
        bool asFloats = false;  // in turn
        for (int decimation = 1; decimation <= 256; decimation *= next, asFloats = !asFloats) {
            const double reach = hz < 40e6 ? 25e6 : 50e6, above = hz + 0.36 * reach / decimation,
                         below = hz - 0.11 * reach / decimation;
            hear({above, below});
            listen(channels, decimation, asFloats);
            for (std::size_t i = 0; i < channels.size(); ++i) {
                float factor = 1;
                if (!asFloats) {
                    ASSERT_EQ(hxrStreamCorrection(handle, channels[i], &factor), hxrNoError);
                }
                for (const double tone : {above, below}) {
                    EXPECT_NEAR(decibels(std::abs(line(i, tone)) * factor), -30, 0.1)
                        << hz << ' ' << shared << ' ' << decimation << ' ' << channels[i] << ' ' << tone - hz;
                }
            }
        }
    }
}

TEST_F(StreamedAir, ChannelsOfAGroupAgreeInPhaseAndFollowTheirOffset) {
    const std::vector<int> channels = {0, 1, 2, 3, 4, 6};
    constexpr int turned = 6;
    constexpr double offset = 0.7;
    for (const double hz : {2.4e9, 500e6, 17.77e9}) {
        tune(hz, true);
        for (const int decimation : {1, 4, 32}) {
            const double tone = hz + 3e6 / decimation;
            hear({tone});
            for (const double set : {0.0, offset}) {
                hxrAbort(handle);
                ASSERT_EQ(hxrSetChannelPhaseOffset(handle, turned, set), hxrNoError);
                listen(channels, decimation);
                for (std::size_t i = 1; i < channels.size(); ++i) {
                    const double expected = channels[i] == turned ? -set : 0;
                    EXPECT_NEAR(std::arg(line(i, tone) / line(0, tone)), expected, 0.5 * degree)
                        << hz << ' ' << decimation << ' ' << channels[i];
                }
            }
        }
    }
}

TEST_F(StreamedAir, DelayTurnsThePhaseOverFrequency) {
    constexpr double hz = 2.4e9, reach = 8e6, stretch = 32.0 / 31.0;
    const std::vector<int> channels = {1, 6};
    tune(hz, true);
    hear({hz - reach, hz + 0.1e6, hz + reach});
    // Seconds by which the second channel is ahead, and its phase in the middle.
    const auto lead = [&] {
        listen(channels, 1);
        const auto between = [&](double tone) { return line(1, tone) / line(0, tone); };
        return std::pair(std::arg(between(hz + reach) / between(hz - reach)) / (2 * turn * reach),
                         std::arg(between(hz + 0.1e6)));
    };
    const auto [without, phase] = lead();
    for (const double delay : {-10e-9, 1e-9, 10e-9}) {
        hxrAbort(handle);
        ASSERT_EQ(hxrSetChannelDelay(handle, 6, delay), hxrNoError);
        const auto [with, phaseWith] = lead();
        EXPECT_NEAR(with - without, delay * stretch, 50e-12);
        EXPECT_NEAR(phaseWith, phase, 0.5 * degree) << "not in the middle";
    }
}

TEST_F(StreamedAir, TimeStampsAreThoseOfTheSamples) {
    constexpr double hz = 2.4e9;
    tune(hz, true);
    for (int decimation = 1; decimation <= 256; decimation *= 2) {
        // Carriers that were in phase at the beginning of 1970. They meet after 8 samples, and after 64 / 5, so that no
        // delay of fewer than 64 samples goes unseen.
        for (const double apart : {50e6 / 8 / decimation, 5 * 50e6 / 64 / decimation}) {
            hear({hz - apart / 2, hz + apart / 2});
            const std::uint64_t time = listen({0, 5}, decimation);
            constexpr std::uint64_t second = 1'000'000'000;
            const double periods = static_cast<double>(time / second) * std::fmod(apart, 1) +
                                   static_cast<double>(time % second) * 1e-9 * apart;
            for (std::size_t i = 0; i < 2; ++i) {
                const double phase = std::arg(line(i, hz + apart / 2) / line(i, hz - apart / 2)) / turn;
                const double late = std::remainder(phase - periods, 1);
                EXPECT_NEAR(late / apart * rate, 0, 0.02) << "samples, at decimation " << decimation;
            }
        }
    }
}

}  // namespace
}  // namespace hxr
