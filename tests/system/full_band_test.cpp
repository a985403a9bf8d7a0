/// Raw captures of a channel, through the public interface.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <vector>

#include "cal/correction_lookup.h"
#include "cal/response_filter.h"
#include "rf/channel_lo.h"
#include "rf/frequency_grid.h"
#include "rf/shared_lo.h"
#include "sim/sources.h"
#include "support/installation.h"
#include "support/lines.h"
#include "support/words_text.h"

namespace hxr {
namespace {

using sim::ReplyFault;
using sim::ReplyKind;
using test::joined;
using test::registerWords;
using test::Words;

constexpr int blockSamples = 2048;
constexpr float untouched = 1234.0F;

class FullBand : public test::Installation {
  protected:
    FullBand() : unit(startUnit()) { EXPECT_EQ(connect(), hxrNoError); }

    /// A capture whose memory ends with one block more, which stays as it is.
    struct Capture {
        HXRStatus status;
        std::vector<float> iq;

        test::Samples samples() const {
            test::Samples all;
            for (std::size_t i = 0; i + 2 * blockSamples < iq.size(); i += 2)
                all.emplace_back(iq[i], iq[i + 1]);
            return all;
        }
        bool block(int number, const std::function<bool(float)>& is) const {
            const auto first = iq.begin() + 2L * blockSamples * number;
            return std::all_of(first, first + 2L * blockSamples, is);
        }
    };

    Capture take(int channel, bool shared, double loHz, int blocks = 1, int attenuator = 0,
                 bool reconfigure = true, float* taps = nullptr) {
        std::vector<float> iq(2 * blockSamples * (static_cast<std::size_t>(std::max(blocks, 0)) + 1),
                              untouched);
        const HXRStatus status = hxrAdminGetFullBandIQ(handle, channel, shared, loHz, attenuator, iq.data(),
                                                       blocks, reconfigure, taps);
        EXPECT_EQ(iq.back(), untouched);
        return {status, iq};
    }

    /// The words that a capture sends, in one packet.
    Words wordsOf(const std::function<void()>& capture) {
        forgetWhatWasSent(unit);
        capture();
        EXPECT_EQ(datagramsAt(unit), 1U);
        return unit.recording().packets().at(0).content();
    }

    /// The level in dBm that an amplitude stands for, as a host works it out that has let the library even the channel.
    double levelOf(double amplitude, int channel, bool shared, double loHz, int attenuator) {
        const CorrectionState& corrections = *device(handle).corrections;
        const int k = frequencyIndexFor(loHz);
        const ResponseFilter filter = buildResponseFilter(corrections, shared, channel, 0.0, k);
        return test::decibels(amplitude) + lookupGain(corrections, channel, attenuator, k) + filter.gainDb;
    }

    sim::SimulatedUnit& unit;
};

TEST_F(FullBand, HearsEveryChannelOnBothLos) {
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);  // corrections take the unit's temperature
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    constexpr double level = -35.0, offset = -7.3e6;
    for (const double loHz : {117'187'500.0, 1'015'625'000.0, 5e9, 10e9, 17'187'500'000.0}) {
        auto scene = std::make_shared<sim::Scene>();
        scene->with<sim::Tone>(loHz + offset, level);
        unit.setScene(scene);
        for (int channel = 0; channel < 4; ++channel) {
            for (const bool shared : {false, true}) {
                const int attenuator = channel;
                const Capture capture = take(channel, shared, loHz, 3, attenuator);
                ASSERT_EQ(capture.status, hxrNoError);
                EXPECT_NEAR(unit.tuning(static_cast<std::size_t>(channel)).loHz.value_or(0), loHz, 1e-3);
                const auto samples = capture.samples();
                const double heard = std::abs(test::lineAt(samples, offset));
                EXPECT_NEAR(levelOf(heard, channel, shared, loHz, attenuator), level, 0.1)
                    << loHz << ' ' << channel << shared;
                EXPECT_LT(test::decibels(std::abs(test::lineAt(samples, -offset)) / heard), -50)
                    << loHz << ' ' << channel << shared;
            }
        }
    }
}

TEST_F(FullBand, HearsBandZeroWithoutAMixer) {
    auto scene = std::make_shared<sim::Scene>();
    scene->with<sim::Tone>(9e6, -20.0);
    unit.setScene(scene);
    std::vector<float> iq(2 * blockSamples);
    for (const bool shared : {false, true}) {
        ASSERT_EQ(hxrAdminGetFullBandIQ(handle, 2, shared, gridSpacingHz, 2, iq.data(), 1), hxrNoError);
        test::Samples samples;
        for (std::size_t i = 0; i < iq.size(); i += 2) samples.emplace_back(iq[i], iq[i + 1]);
        const double upper = std::abs(test::lineAt(samples, 9e6)),
                     lower = std::abs(test::lineAt(samples, -9e6));
        EXPECT_GT(test::decibels(upper), -60);
        EXPECT_NEAR(test::decibels(upper / lower), 0, 0.1);
    }
}

const Words passThrough = joined({Words(4 + 31), {0x7D007D00}, Words(1 + 31 + 2)});
const Words statusBehind = registerWords(0, "058303E8 0 0 11000008");

TEST_F(FullBand, GoesOutInOnePacketWordForWord) {
    std::vector<float> iq(2 * 2 * blockSamples);
    // Band 0 on the channel's own LO: no pause, since no band was captured before.
    device(handle).loContext.lowLoReady[0] = true;
    Words words = wordsOf(
        [&] { EXPECT_EQ(hxrAdminGetFullBandIQ(handle, 0, false, 30e6, 3, iq.data(), 1), hxrNoError); });
    const HXRCalData& image = *device(handle).corrections->image;
    const auto signedWord = [](std::uint32_t word, int value) {
        return word + static_cast<std::uint32_t>(value);
    };
    EXPECT_EQ(words, joined({{0x0F003040, 0x044400FC},
                             passThrough,
                             {0x92180000, 0x92193333, signedWord(0x921A8000, image.loftI[0][0]),
                              signedWord(0x921B8000, image.loftQ[0][0]), 0x930001EF,
                              signedWord(0x91000000, image.channelGainCode[0][1]), 0x9400103F, 0x52000101,
                              0x5100FF84, 0x41000081, 0x4C000000},
                             registerWords(0, "05000009 0 0 13000001 05012710 0 0 05000009 0 0 12000001"),
                             statusBehind}));

    // Channel 3 on the shared LO above band 16, twice: the band changes at the first capture alone.
    constexpr double loHz = 10e9;
    ASSERT_EQ(hxrAdminSetLOFT(handle, -1, 2), hxrNoError);
    LoContext context = device(handle).loContext;
    for (const bool first : {true, false}) {
        words = wordsOf(
            [&] { EXPECT_EQ(hxrAdminGetFullBandIQ(handle, 3, true, loHz, 6, iq.data(), 2), hxrNoError); });
        const Words pause = first ? registerWords(0, "050001EC 0 0") : Words{};
        EXPECT_EQ(words,
                  joined({{0x0F003070, 0x0444027C},
                          passThrough,
                          tuneSharedLo(context, 18, loHz),
                          {0xE2180000, 0xE2193333, 0xE21A7FFF, 0xE21B8002, 0xE300405E,
                           signedWord(0xE1000000, image.channelGainCode[3][256]), 0xE4001020, 0x52000800},
                          retuneChannelLo(context, 3, 18, loHz, true, IdleHighLo::parked),
                          {0x4C000000},
                          registerWords(0, "05000027 0 0 13000880 05012710 0 0 05000009 0 0"),
                          pause,
                          {0x12000002},
                          statusBehind}))
            << first;
    }
}

TEST_F(FullBand, TunesAsTheFormAsks) {
    ASSERT_EQ(hxrSetChannelDelay(handle, 1, 3e-9), hxrNoError);
    const CorrectionState& corrections = *device(handle).corrections;
    std::array<float, 126> taps{};
    for (std::size_t i = 0; i < taps.size(); ++i) taps[i] = 1.0F / static_cast<float>(i + 1);
    ResponseTaps own;
    for (std::size_t i = 0; i < own.size(); ++i) own[i] = {taps[2 * i], taps[2 * i + 1]};
    constexpr double loHz = 1'015'625'000.0;
    const struct {
        const char* what;
        bool shared;
        float* taps;
        ResponseTaps expected;
        std::uint32_t highLo;  ///< a word that the channel's high synthesizer gets
    } cases[] = {
        {"designed", false, nullptr, buildResponseFilter(corrections, false, 1, 3e-9, 26).taps, 0xA0002B83},
        {"designed on the full grid", true, nullptr, buildResponseFilter(corrections, true, 1, 3e-9, 26).taps,
         0xA0001020},  // parked at the top of its table
        {"given", false, taps.data(), own, 0xA0002B83},
    };
    for (const auto& test : cases) {
        const Words words = wordsOf([&] { take(1, test.shared, loHz, 1, 0, true, test.taps); });
        const auto block = tapBlock(test.expected);
        EXPECT_TRUE(std::equal(block.begin(), block.end(), words.begin() + 2)) << test.what;
        EXPECT_EQ(std::ranges::count(words, test.highLo), 1) << test.what;
        EXPECT_EQ(words.size() > 150, !test.shared && device(handle).lastBand[1] == 9)
            << test.what << words.size();
    }
    // As it was tuned, with another number of blocks.
    for (const int blocks : {255, 1}) {
        const Words words =
            wordsOf([&] { EXPECT_EQ(take(1, true, 3e9, blocks, 6, false).status, hxrNoError); });
        EXPECT_EQ(words, joined({{0x12000000U + static_cast<std::uint32_t>(blocks)}, statusBehind}));
    }
    EXPECT_NEAR(unit.tuning(1).loHz.value_or(0), loHz, 1e-3);
    EXPECT_EQ(device(handle).fullBandPlan->blocks, 1);
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    EXPECT_EQ(take(1, true, loHz).status, hxrNoError) << "nothing is configured";
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    EXPECT_FALSE(device(handle).fullBandConfigured);
    EXPECT_EQ(device(handle).fullBandPlan, nullptr);
}

TEST_F(FullBand, RefusesAndChangesNothing) {
    constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
    const struct {
        int channel, attenuator, blocks;
        double loHz;
    } cases[] = {{-1, 0, 1, 1e9}, {4, 0, 1, 1e9},  {0, -1, 1, 1e9},  {0, 7, 1, 1e9},
                 {0, 0, 0, 1e9},  {0, 0, -1, 1e9}, {0, 0, 256, 1e9}, {0, 0, 1, notANumber}};
    const auto ready = device(handle).loContext.lowLoReady;
    forgetWhatWasSent(unit);
    for (const auto& [channel, attenuator, blocks, loHz] : cases) {
        for (const bool reconfigure : {true, false}) {
            const Capture capture = take(channel, false, loHz, blocks, attenuator, reconfigure);
            EXPECT_EQ(capture.status, hxrInvalidParameterErr) << channel << attenuator << blocks << loHz;
            EXPECT_TRUE(capture.block(0, [](float value) { return value == untouched; }));
        }
    }
    EXPECT_EQ(hxrAdminGetFullBandIQ(handle, 4, false, 1e9, 0, nullptr, 1), hxrNullPointerErr);
    EXPECT_EQ(hxrAdminGetFullBandIQ(handle, 0, false, 1e9, 0, nullptr, 1, false, nullptr), hxrNullPointerErr);
    EXPECT_EQ(device(handle).fullBandPlan, nullptr);
    EXPECT_EQ(device(handle).loContext.lowLoReady, ready);
    EXPECT_EQ(datagramsAt(unit), 0U);

    for (const bool sweep : {true, false}) {
        const std::array<int, 4> enabled{1, 0, 0, 0};
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), sweep ? 0 : -1), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
        forgetWhatWasSent(unit);
        EXPECT_EQ(take(1, false, 1e9).status, hxrInvalidConfigurationErr);
        EXPECT_EQ(datagramsAt(unit), 0U);
        ASSERT_EQ(hxrAbort(handle), hxrNoError);
    }
    const struct { double asked, taken; } limits[] = {{-1e30, 0}, {1e30, 22e9}};
    for (const auto& [asked, taken] : limits) {
        EXPECT_EQ(take(0, false, asked).status, hxrSettingClamped);
        EXPECT_EQ(unit.tuning(0).loHz, taken == 0 ? std::nullopt : std::optional(taken));
    }
}

/// What goes wrong while a capture of two blocks is taken on channel 2, and what it says.
struct CaptureFault {
    const char* name;
    std::function<void(sim::SimulatedUnit&)> arrange;
    HXRStatus status;
    int heard = 2;  ///< blocks that come
};

const CaptureFault captureFaults[] = {
    {"nothing", [](auto&) {}, hxrNoError},
    {"first block lost",
     [](auto& unit) { unit.faults().add({.kind = ReplyKind::samples}, ReplyFault::lose()); },
     hxrConnectionLostErr, 1},
    {"status lost", [](auto& unit) { unit.faults().add({.kind = ReplyKind::status}, ReplyFault::lose()); },
     hxrConnectionLostErr},
    {"no answer", [](auto& unit) { unit.faults().silenceAfterDatagrams(0); }, hxrConnectionLostErr, 0},
    {"wrong magic",
     [](auto& unit) { unit.faults().add({.kind = ReplyKind::status}, ReplyFault::setMagic(1)); },
     hxrDataSyncErr},
    {"short block",
     [](auto& unit) {
         unit.faults().add({.kind = ReplyKind::samples, .skip = 1}, ReplyFault::setLength(8215));
     },
     hxrNoError, 1},
    {"clocks", [](auto& unit) { unit.changeHealth([](auto& health) { health.clockStatus = 0x0E00; }); },
     hxrADCAlignmentErr},
    {"overflow", [](auto& unit) { unit.changeHealth([](auto& health) { health.adcOverflow = 4; }); },
     hxrADCOverflow},
    {"overflow elsewhere",
     [](auto& unit) { unit.changeHealth([](auto& health) { health.adcOverflow = 11; }); }, hxrNoError},
    {"overdriven",
     [](auto& unit) {
         auto scene = std::make_shared<sim::Scene>();
         scene->template with<sim::Tone>(1e9, 40.0);
         unit.setScene(scene);
     },
     hxrADCOverflow},
    {"temperature", [](auto& unit) { unit.changeHealth([](auto& health) { health.temperatureA += 20; }); },
     hxrNoError},
};

TEST_F(FullBand, EndsInTheStatusOfItsFault) {
    for (const CaptureFault& fault : captureFaults) {
        clock.shortenTimeouts(1);
        hxrCloseDevice(handle);
        unit.stop();
        unit.faults().clear();
        unit.faults().revive();
        unit.setHealth({});
        unit.start();
        ASSERT_EQ(connect(), hxrNoError) << fault.name;
        auto scene = std::make_shared<sim::Scene>();
        scene->with<sim::Tone>(1e9, -30.0);
        unit.setScene(scene);
        fault.arrange(unit);
        if (fault.status == hxrConnectionLostErr) clock.shortenTimeouts(20);
        const Capture capture = take(2, false, 1'015'625'000.0, 2);
        EXPECT_EQ(capture.status, fault.status) << fault.name;
        // What has come stands from the beginning on, zeros behind.
        const auto isZero = [](float value) { return value == 0; };
        for (int block = 0; block < 2; ++block)
            EXPECT_EQ(capture.block(block, isZero), block >= fault.heard) << fault.name << block;
        if (fault.status == hxrConnectionLostErr) {
            EXPECT_EQ(take(2, false, 1e9).status, hxrConnectionLostErr) << fault.name;
        } else if (fault.status != hxrNoError) {
            unit.setHealth({});
            unit.setScene(nullptr);
            EXPECT_EQ(take(2, false, 1e9).status, hxrNoError) << fault.name;
        }
    }
}

}  // namespace
}  // namespace hxr
