/// Raw captures of a channel, through the public interface.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <functional>
#include <limits>
#include <span>
#include <type_traits>
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

    /// Takes a capture into `iq`, behind which nothing may be written.
    HXRStatus take(int channel, bool shared, double loHz, int blocks = 1, int attenuator = 0,
                   bool reconfigure = true, float* taps = nullptr) {
        iq.assign(2 * blockSamples * static_cast<std::size_t>(std::max(blocks, 0)) + 1, untouched);
        const HXRStatus status = hxrAdminGetFullBandIQ(handle, channel, shared, loHz, attenuator, iq.data(),
                                                       blocks, reconfigure, taps);
        EXPECT_EQ(iq.back(), untouched);
        return status;
    }

    /// Amplitude of a line.
    double heardAt(double hz) const {
        test::Samples samples;
        for (std::size_t i = 0; i + 1 < iq.size(); i += 2) samples.emplace_back(iq[i], iq[i + 1]);
        return std::abs(test::lineAt(samples, hz));
    }

    /// The words that a capture sends, in one packet.
    Words wordsOf(const std::function<HXRStatus()>& capture) {
        forgetWhatWasSent(unit);
        EXPECT_EQ(capture(), hxrNoError);
        EXPECT_EQ(datagramsAt(unit), 1U);
        return unit.recording().packets().at(0).content();
    }

    void hear(double hz, double dbm) {
        auto scene = std::make_shared<sim::Scene>();
        scene->with<sim::Tone>(hz, dbm);
        unit.setScene(scene);
    }

    sim::SimulatedUnit& unit;
    std::vector<float> iq;
};

TEST_F(FullBand, HearsEveryChannelOnBothLos) {
    // Corrections take the unit's temperature, and a sweep leaves channel 0's oscillator turning.
    const std::array<int, 4> enabled{1, 0, 0, 0};
    ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), 0), hxrNoError);
    ASSERT_EQ(hxrSetSweepStartStop(handle, 1e9, 1.01e9), hxrNoError);
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    ASSERT_EQ(hxrGetSweep(handle, nullptr), hxrNoError);
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    constexpr double level = -35.0, offset = -7.3e6;
    const CorrectionState& corrections = *device(handle).corrections;
    for (const double loHz : {117'187'500.0, 1'015'625'000.0, 5e9, 10e9, 17'187'500'000.0}) {
        hear(loHz + offset, level);
        for (int input = 0; input < 8; ++input) {
            const int channel = input / 2, attenuator = channel;
            const bool shared = input % 2 == 1;
            ASSERT_EQ(take(channel, shared, loHz, 3, attenuator), hxrNoError);
            EXPECT_NEAR(unit.tuning(static_cast<std::size_t>(channel)).loHz.value_or(0), loHz, 1e-3);
            // As a host works the level out that has let the library even the channel.
            const int k = frequencyIndexFor(loHz);
            const double correction = lookupGain(corrections, channel, attenuator, k) +
                                      buildResponseFilter(corrections, shared, channel, 0.0, k).gainDb;
            const double heard = test::decibels(heardAt(offset));
            EXPECT_NEAR(heard + correction, level, 0.1) << loHz << ' ' << input;
            EXPECT_LT(test::decibels(heardAt(-offset)), heard - 50) << loHz << ' ' << input;
        }
    }
    // Without a mixer a line stands on both sides.
    hear(9e6, level);
    for (const bool shared : {false, true}) {
        ASSERT_EQ(take(2, shared, gridSpacingHz), hxrNoError);
        EXPECT_NEAR(test::decibels(heardAt(9e6) / heardAt(-9e6)), 0, 0.1);
        EXPECT_GT(test::decibels(heardAt(9e6)), -60);
    }
}

const Words passThrough = joined({Words(4 + 31), {0x7D007D00}, Words(1 + 31 + 2)});
const Words statusBehind = registerWords(0, "058303E8 0 0 11000008");

TEST_F(FullBand, GoesOutInOnePacketWordForWord) {
    iq.resize(2 * 2 * blockSamples);
    const HXRCalData& image = *device(handle).corrections->image;
    const auto plus = [](std::uint32_t word, int value) { return word + static_cast<std::uint32_t>(value); };
    // Band 0 on the channel's own LO: no pause, since no band was captured before.
    device(handle).loContext.lowLoReady[0] = true;
    Words words = wordsOf([&] { return hxrAdminGetFullBandIQ(handle, 0, false, 30e6, 3, iq.data(), 1); });
    const Words frontEnd{0x92180000,
                         0x92193333,
                         plus(0x921A8000, image.loftI[0][0]),
                         plus(0x921B8000, image.loftQ[0][0]),
                         0x930001EF,
                         plus(0x91000000, image.channelGainCode[0][1]),
                         0x9400103F,
                         0x52000101};
    EXPECT_EQ(
        words,
        joined({{0x0F003040, 0x044400FC},
                passThrough,
                frontEnd,
                registerWords(
                    0, "5100FF84 41000081 4C000000 05000009 0 0 13000001 05012710 0 0 05000009 0 0 12000001"),
                statusBehind}));

    // Channel 3 on the shared LO above band 16, twice: the band changes at the first capture alone.
    constexpr double loHz = 10e9;
    ASSERT_EQ(hxrAdminSetLOFT(handle, -1, 2), hxrNoError);
    LoContext context = device(handle).loContext;
    for (const char* pause : {"050001EC 0 0", ""}) {
        words = wordsOf([&] { return hxrAdminGetFullBandIQ(handle, 3, true, loHz, 6, iq.data(), 2); });
        const Words high{0xE2180000, 0xE2193333, 0xE21A7FFF,
                         0xE21B8002, 0xE300405E, plus(0xE1000000, image.channelGainCode[3][256]),
                         0xE4001020, 0x52000800};
        EXPECT_EQ(words, joined({{0x0F003070, 0x0444027C},
                                 passThrough,
                                 tuneSharedLo(context, 18, loHz),
                                 high,
                                 retuneChannelLo(context, 3, 18, loHz, true, IdleHighLo::parked),
                                 registerWords(0, "4C000000 05000027 0 0 13000880 05012710 0 0 05000009 0 0"),
                                 registerWords(0, pause),
                                 {0x12000002},
                                 statusBehind}))
            << pause;
    }
}

TEST_F(FullBand, TunesAsTheFormAsks) {
    ASSERT_EQ(hxrSetChannelDelay(handle, 1, 3e-9), hxrNoError);
    const CorrectionState& corrections = *device(handle).corrections;
    // Without a mixer it is still the LO that would be used that chooses among the corrections.
    constexpr double loHz = 1'015'625'000.0, directHz = 60e6;
    HXRCalData& image = *device(handle).corrections->image;
    for (std::size_t k = 0; k < 4; ++k) image.channelGainCode[1][k] = static_cast<std::uint8_t>(0x50 + k);
    image.channelGainCode[1][26] = 0x5A;
    std::array<float, 126> taps{};
    ResponseTaps given;
    for (std::size_t i = 0; i < taps.size(); ++i) taps[i] = 1.0F / static_cast<float>(i + 1);
    for (std::size_t i = 0; i < given.size(); ++i) given[i] = {taps[2 * i], taps[2 * i + 1]};
    const struct {
        const char* what;
        bool shared;
        double loHz;
        float* taps;
        ResponseTaps expected;
        std::uint32_t highLo;  ///< what becomes of the channel's high synthesizer: off, or parked
        std::uint32_t gain;
    } cases[] = {
        {"design", false, loHz, nullptr, buildResponseFilter(corrections, false, 1, 3e-9, 26).taps,
         0xA0002B83, 0xA100005A},
        {"full grid", true, loHz, nullptr, buildResponseFilter(corrections, true, 1, 3e-9, 26).taps,
         0xA0001020, 0xA100005A},
        {"given", false, loHz, taps.data(), given, 0xA0002B83, 0xA100005A},
        {"direct", true, directHz, nullptr, buildResponseFilter(corrections, true, 1, 3e-9, 2).taps,
         0xA0001020, 0xA1000052},
    };
    EXPECT_NE(cases[3].expected, buildResponseFilter(corrections, true, 1, 3e-9, 1).taps);
    for (const auto& test : cases) {
        const Words words = wordsOf([&] { return take(1, test.shared, test.loHz, 1, 0, true, test.taps); });
        EXPECT_EQ(std::ranges::count(words, test.gain), 1) << test.what;
        const auto block = tapBlock(test.expected);
        EXPECT_TRUE(std::equal(block.begin(), block.end(), words.begin() + 2)) << test.what;
        EXPECT_EQ(std::ranges::count(words, test.highLo), 1) << test.what;
    }
    // As it was tuned, with another number of blocks.
    for (const int blocks : {255, 1}) {
        const Words words = wordsOf([&] { return take(1, true, -1, blocks, 6, false); });
        EXPECT_EQ(words, joined({{0x12000000U + static_cast<std::uint32_t>(blocks)}, statusBehind}));
    }
    ASSERT_EQ(hxrInitiate(handle), hxrNoError);
    EXPECT_EQ(take(1, true, loHz), hxrNoError) << "nothing is configured";
    EXPECT_NE(device(handle).fullBandPlan, nullptr);
    ASSERT_EQ(hxrAbort(handle), hxrNoError);
    EXPECT_FALSE(device(handle).fullBandConfigured);
    EXPECT_EQ(device(handle).fullBandPlan, nullptr);
}

TEST_F(FullBand, PausesWhereTheBandOfTheChannelChanges) {
    iq.resize(2 * blockSamples);
    const struct {
        int channel;
        double loHz;
        bool reconfigure, pause;
    } cases[] = {{3, 30e6, true, false},  // as if it had been captured in band 0
                 {3, 10e9, true, true},   {0, 10e9, true, true},  {3, 11e9, true, false},
                 {3, 1e9, false, false},  {3, 12e9, true, false}, {0, 1e9, true, true},
                 {0, 10e9, false, false}, {0, 1e9, true, false},  {3, 1e9, true, true}};
    for (const auto& [channel, loHz, reconfigure, pause] : cases) {
        const Words words = wordsOf([&] {
            return hxrAdminGetFullBandIQ(handle, channel, false, loHz, 0, iq.data(), 1, reconfigure, nullptr);
        });
        EXPECT_EQ(std::ranges::count(words, 0x050001ECU), pause ? 1 : 0) << channel << ' ' << loHz;
    }
}

TEST_F(FullBand, TakesThePreselectorThatIsForced) {
    constexpr std::uint32_t seventhFilter = 0x93004040;  // of band 18, without attenuation
    for (const bool forced : {true, false}) {
        ASSERT_EQ(forced ? hxrAdminSetPreselectorFilter(18) : hxrAdminSetAutoPreselectorFilter(), hxrNoError);
        const Words words = wordsOf([&] { return take(0, false, 1e9); });
        EXPECT_EQ(std::ranges::count(words, seventhFilter), forced ? 1 : 0);
    }
}

TEST_F(FullBand, RefusesAndChangesNothing) {
    constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
    const struct {
        int channel, attenuator, blocks;
    } cases[] = {{-1, 0, 1}, {4, 0, 1}, {0, -1, 1}, {0, 7, 1}, {0, 0, 0}, {0, 0, -1}, {0, 0, 256}};
    forgetWhatWasSent(unit);
    for (const auto& [channel, attenuator, blocks] : cases) {
        for (const bool reconfigure : {true, false}) {
            EXPECT_EQ(take(channel, false, 1e9, blocks, attenuator, reconfigure), hxrInvalidParameterErr)
                << channel << attenuator << blocks;
            EXPECT_EQ(iq.front(), untouched);
        }
    }
    EXPECT_EQ(take(0, false, notANumber), hxrInvalidParameterErr);
    EXPECT_EQ(hxrAdminGetFullBandIQ(handle, 4, false, 1e9, 0, nullptr, 1), hxrNullPointerErr);
    EXPECT_EQ(hxrAdminGetFullBandIQ(handle, 0, false, 1e9, 0, nullptr, 1, false, nullptr), hxrNullPointerErr);
    EXPECT_EQ(device(handle).fullBandPlan, nullptr);
    EXPECT_EQ(datagramsAt(unit), 0U);
    for (const int focus : {0, -1}) {  // a sweep, a stream
        const std::array<int, 4> enabled{1, 0, 0, 0};
        ASSERT_EQ(hxrSetChannelConfig(handle, enabled.data(), focus), hxrNoError);
        ASSERT_EQ(hxrInitiate(handle), hxrNoError);
        forgetWhatWasSent(unit);
        EXPECT_EQ(take(1, false, 1e9), hxrInvalidConfigurationErr);
        EXPECT_EQ(take(4, false, notANumber, 0), hxrInvalidConfigurationErr) << "which is told first";
        EXPECT_EQ(datagramsAt(unit), 0U);
        ASSERT_EQ(hxrAbort(handle), hxrNoError);
    }
    EXPECT_EQ(take(0, false, -1e30), hxrSettingClamped);
    EXPECT_EQ(take(0, false, 1e30), hxrSettingClamped);
    EXPECT_EQ(unit.tuning(0).loHz, 22e9);
}

/// What goes wrong while a capture of two blocks is taken on channel 2, and what it says.
struct CaptureFault {
    const char* name;
    HXRStatus status;
    std::size_t heard;  ///< blocks that come
    std::function<void(sim::SimulatedUnit&)> arrange;
};

std::function<void(sim::SimulatedUnit&)> onReply(ReplyKind kind, std::size_t skip, const ReplyFault& fault) {
    return [=](sim::SimulatedUnit& unit) { unit.faults().add({.kind = kind, .skip = skip}, fault); };
}

template <typename Value>
std::function<void(sim::SimulatedUnit&)> health(Value sim::Health::*field,
                                                std::type_identity_t<Value> value) {
    return
        [=](sim::SimulatedUnit& unit) { unit.changeHealth([=](sim::Health& now) { now.*field = value; }); };
}

TEST_F(FullBand, EndsInTheStatusOfItsFault) {
    const CaptureFault faults[] = {
        {"nothing", hxrNoError, 2, [](auto&) {}},
        {"first block lost", hxrConnectionLostErr, 1, onReply(ReplyKind::samples, 0, ReplyFault::lose())},
        {"status lost", hxrConnectionLostErr, 2, onReply(ReplyKind::status, 0, ReplyFault::lose())},
        {"no answer", hxrConnectionLostErr, 0,
         [](auto& silent) { silent.faults().silenceAfterDatagrams(0); }},
        {"wrong magic", hxrDataSyncErr, 2, onReply(ReplyKind::status, 0, ReplyFault::setMagic(1))},
        {"short block", hxrNoError, 1, onReply(ReplyKind::samples, 1, ReplyFault::setLength(8215))},
        {"clocks", hxrADCAlignmentErr, 2, health(&sim::Health::clockStatus, 0x0E00)},
        {"overflow", hxrADCOverflow, 2, health(&sim::Health::adcOverflow, 4)},
        {"overflow elsewhere", hxrNoError, 2, health(&sim::Health::adcOverflow, 11)},
        {"temperature", hxrNoError, 2, health(&sim::Health::temperatureA, 70)},
        {"overdriven", hxrADCOverflow, 2, [this](auto&) { hear(1e9, 40); }},
    };
    for (const CaptureFault& fault : faults) {
        clock.shortenTimeouts(1);
        hxrCloseDevice(handle);
        unit.stop();  // what it hasn't come to yet goes with its socket
        unit.faults().clear();
        unit.faults().revive();
        unit.setHealth({});
        unit.start();
        ASSERT_EQ(connect(), hxrNoError) << fault.name;
        hear(1e9, -30);
        fault.arrange(unit);
        const bool lost = fault.status == hxrConnectionLostErr;
        if (lost) clock.shortenTimeouts(20);
        EXPECT_EQ(take(2, false, 1'015'625'000.0, 2), fault.status) << fault.name;
        // What has come stands from the beginning on, zeros behind.
        for (std::size_t block = 0; block < 2; ++block) {
            const auto samples = std::span(iq).subspan(block * 2 * blockSamples, 2 * blockSamples);
            EXPECT_EQ(std::ranges::count(samples, 0.0F) == 2 * blockSamples, block >= fault.heard)
                << fault.name << block;
        }
        unit.setHealth({});
        hear(1e9, -30);
        EXPECT_EQ(take(2, false, 1e9), lost ? hxrConnectionLostErr : hxrNoError) << fault.name;
    }
}

}  // namespace
}  // namespace hxr
