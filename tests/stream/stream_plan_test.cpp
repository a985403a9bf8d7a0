#include "stream/stream_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "cal/correction_lookup.h"
#include "cal/response_filter.h"
#include "device/channel_settings.h"
#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/front_end.h"
#include "rf/shared_lo.h"
#include "sim/decoder.h"
#include "sim/synthetic_image.h"
#include "support/scripted_unit.h"

namespace hxr {
namespace {

using test::joined;
using test::ScriptedUnit;
using test::StatusDatagram;
using test::Words;

/// A group with synthetic corrections at their middle temperature.
class StreamPlan : public testing::Test {
  protected:
    void makeGroup(std::size_t size, const std::vector<std::size_t>& streaming) {
        units.clear();
        for (std::size_t i = 0; i < size; ++i) {
            units.push_back(std::make_unique<ScriptedUnit>(clock));
            HXRDevice& unit = *units.back()->device;
            const auto bytes = sim::makeSyntheticImage({.serialNumber = static_cast<std::uint32_t>(i)});
            std::memcpy(unit.corrections->image.get(), bytes.data(), bytes.size());
            updateTemperature(*unit.corrections, 15.0F);
            units.back()->answer(StatusDatagram());
            if (i > 0) master().slaves.push_back(&unit);
        }
        master().channelCount = static_cast<int>(4 * size);
        for (const std::size_t channel : streaming) master().channelEnabled[channel] = true;
        master().streamActive = true;
    }

    HXRDevice& master() { return *units.front()->device; }

    /// The words of a packet up to its last but padding.
    static Words packetOf(const CommandList& list, std::size_t packet) {
        Words words(list.packet(packet).begin(), list.packet(packet).end());
        while (!words.empty() && words.back() == 0) words.pop_back();
        return words;
    }

    static bool contains(const Words& words, const Words& run) {
        return !std::ranges::search(words, run).empty();
    }

    test::TestClock clock;
    std::vector<std::unique_ptr<ScriptedUnit>> units;
};

TEST_F(StreamPlan, OfASingleUnitIsTheKnownRunOfWords) {
    makeGroup(1, {0, 3});
    const std::vector<StreamLists> lists = planStream(master());
    ASSERT_EQ(lists.size(), 1U);
    const CommandList& config = lists[0].config;
    ASSERT_EQ(config.packetCount(), 6U);

    // The time is that of the status record, good or bad.
    const Words rates = packetOf(config, 0);
    EXPECT_EQ(rates[0], 0x04010005U);
    EXPECT_EQ(rates[6], 0x04010007U);
    EXPECT_EQ(Words(rates.begin() + 12, rates.begin() + 22),
              (Words{0x13000000, 0x06015169, 0x050003D8, 0, 0, 0x1001003F, 0x0463037C, 0, 0, 0}));
    const Words taps(rates.begin() + 23, rates.end());
    ASSERT_EQ(taps.size(), 95U);
    EXPECT_EQ(taps.front(), 0xFFFFFFFFU);
    EXPECT_EQ(taps.back(), 95722U);

    LoContext context;
    EXPECT_EQ(packetOf(config, 1), tuneSharedLo(context, 9, 1'023'437'500));

    // An LO on the fine grid, 23.4375 MHz above: three sixteenths of the NCO's clock.
    const Words first = packetOf(config, 2);
    EXPECT_EQ(Words(first.begin(), first.begin() + 6), (Words{0x04010008, 1, 0, 0, 0, 0}));
    const Words tuning =
        joined({retuneChannelLo(context, 0, 9, 1'023'437'500, false, IdleHighLo::off),
                {0x4C000000, 0x0500003F, 0, 0, 0x04020300, 0, 0x00300000, 0, 0, 0x04010308, 0x00007FFF}});
    EXPECT_EQ(Words(first.begin() + 14, first.end()), tuning);

    const Words filter = packetOf(config, 3);
    EXPECT_EQ(filter[0], 0x044400FCU);
    const ResponseFilter response = buildResponseFilter(*master().corrections, false, 0, 0.0, 27);
    const float db = static_cast<float>(lookupGain(*master().corrections, 0, 0, 27) + response.gainDb);
    EXPECT_EQ(
        Words(filter.begin() + 71, filter.end()),
        (Words{0x04090040, 0xA9A64000, 0x00002625, 0xA0000000, 0x0003B9AC, 0xA0000000,
               static_cast<std::uint32_t>(static_cast<std::int32_t>(db * 128)), 0, 0x00002FAF, 0x08000000}));
    EXPECT_DOUBLE_EQ(master().streamCorrection[0], std::pow(10.0, static_cast<double>(db) / 20));

    EXPECT_EQ(packetOf(config, 4)[0], 0x0401000BU);
    const Words last = packetOf(config, 5);
    EXPECT_EQ(last[0], 0x0444027CU);
    EXPECT_EQ(Words(last.end() - 2, last.end()), (Words{0x01000006, 0x0500000F}));
    EXPECT_EQ(packetOf(lists[0].start, 0), Words{0x0E01137F});

    // From now on the unit's time is set.
    EXPECT_EQ(packetOf(planStream(master())[0].config, 0)[0], 0x13000000U);
}

TEST_F(StreamPlan, RatesLimitBandwidthsAndChooseTheFilter) {
    struct Case {
        int decimation;
        double bandwidth;
        std::uint32_t chainDelay;
        double hardwareBandwidth, outputBandwidth;
        double cutoff;  ///< of the receiver's filter, of its input rate; 0: the stored one
    };
    const Case cases[] = {
        {1, 40e6, 0x06015169, 40e6, 40e6, 0},       {1, 20e3, 0x06015169, 20e3, 20e3, 0.012},
        {2, 40e6, 0x06015261, 20e6, 20e6, 0},       {2, 19.99e6, 0x06015261, 19.99e6, 19.99e6, 0.08996},
        {4, 40e6, 0x06015448, 10e6, 10e6, 0},       {8, 4e6, 0x06015448, 4e6, 4e6, 0.042},
        {256, 1e6, 0x06015448, 1e6, 156'250, 0.018}};
    makeGroup(1, {1});
    for (const Case& c : cases) {
        HXRDevice& unit = master();
        unit.decimation = c.decimation;
        unit.hardwareDecimation = std::min(c.decimation, 4);
        unit.hostDecimation = c.decimation / unit.hardwareDecimation;
        unit.hardwareBandwidth = unit.outputBandwidth = c.bandwidth;
        const Words words = packetOf(planStream(unit)[0].config, 0);
        EXPECT_TRUE(contains(words, {c.chainDelay})) << c.decimation;
        EXPECT_DOUBLE_EQ(unit.hardwareBandwidth, c.hardwareBandwidth);
        EXPECT_DOUBLE_EQ(unit.outputBandwidth, c.outputBandwidth);

        // The filter's gain 6 dB down at its cut-off is half of that at DC.
        std::vector<std::int32_t> half(words.end() - 95, words.end());
        const auto response = [&](double f) {
            double sum = half[94];
            for (int n = 0; n < 94; ++n)
                sum += 2 * half[static_cast<std::size_t>(n)] * std::cos(2 * std::numbers::pi * f * (94 - n));
            return sum / 524288;
        };
        EXPECT_NEAR(response(0), 1.0, 3e-4) << c.decimation;
        if (c.cutoff > 0) {
            EXPECT_NEAR(response(c.cutoff), 0.5, 1e-2) << c.bandwidth;
        } else {
            EXPECT_EQ(half[94], 95722);
        }
    }
}

TEST_F(StreamPlan, UnitsOfAGroupFollowTheMaster) {
    makeGroup(4, {1, 6, 7, 15});
    units[2]->device->streamPort = 5001;
    const std::vector<StreamLists> lists = planStream(master());
    const std::uint32_t starts[] = {0x0EA3137F, 0x0E75137F, 0x0E451389, 0x0E15137F};
    const std::uint32_t strobes[] = {0x01A20006, 0x01740006, 0x01440006, 0x01140006};
    const std::size_t packets[] = {4, 6, 2, 4};
    for (std::size_t u = 0; u < 4; ++u) {
        EXPECT_EQ(packetOf(lists[u].start, 0), Words{starts[u]});
        ASSERT_EQ(lists[u].config.packetCount(), packets[u]);
        const Words last = packetOf(lists[u].config, packets[u] - 1);
        EXPECT_EQ(Words(last.end() - 2, last.end()), (Words{strobes[u], 0x0500000F}));
        const Words shared = packetOf(lists[u].config, 1);
        EXPECT_EQ(u > 0, contains(shared, {0x45000081, 0x51048080})) << u;
    }
    // Channel 6 is the third input of the second unit, and keeps its own identifier.
    EXPECT_EQ(packetOf(lists[1].config, 2)[0], 0x0401000AU);
    EXPECT_EQ(packetOf(lists[1].config, 2)[1], 7U);

    master().localStream = false;
    master().vrtContextInterval = 100;
    for (const bool enabled : {true, false}) {
        master().vrtContextEnabled = enabled;
        const std::vector<StreamLists> vrt = planStream(master());
        EXPECT_EQ(packetOf(vrt[3].start, 0), Words{0x0E150000});
        EXPECT_TRUE(contains(packetOf(vrt[3].config, 0), {enabled ? 0x10010064U : 0x10000064U}));
    }
}

TEST_F(StreamPlan, SharedChannelsTurnWithOneOscillator) {
    struct Case {
        double hz;
        int band, index;
        Words oscillator;
    };
    // In band 0 the signal comes as it is, and the oscillator turns it up.
    const Case cases[] = {
        {1e9, 9, 27, {0x04020302, 0, 0x40300000, 0, 0, 0x0402030E, 0, 0x00300000}},
        {31.25e6, 0, 2, {0x04020302, 0, 0x7FC00000, 0, 0, 0x0402030E, 0, 0xFFC00000}},
        {9e9, 18, 231, {0x04020302, 0, 0x40300000, 0, 0, 0x0402030E, 0, 0x00300000}},
    };
    for (const Case& c : cases) {
        makeGroup(1, {1});
        master().channelShared[1] = true;
        master().sharedFreq = c.hz;
        master().channelFreq[1] = 3e9;
        master().channelPhaseOffset[1] = 0.25;
        master().channelDelay[1] = 2e-9;
        const CommandList config = planStream(master())[0].config;
        const Words words = packetOf(config, 2);
        EXPECT_TRUE(contains(words, joined({{0x4C000000, 0x0500003E, 0, 0}, c.oscillator}))) << c.hz;
        EXPECT_EQ(contains(words, buildHighLoImage(1)), c.band > 16) << c.hz;
        LoContext context;
        EXPECT_TRUE(
            contains(words, retuneChannelLo(context, 1, c.band, c.hz + 23'437'500, true, IdleHighLo::off)));

        const double phase = 0.25 + 2e-9 * 1.25e8 * std::numbers::pi * 12 / 31 +
                             double{lookupChannelPhase(*master().corrections, 1, c.index)};
        const auto rotation = words.back();
        EXPECT_EQ(words[words.size() - 2], 0x04010309U);
        EXPECT_EQ(static_cast<std::int16_t>(rotation >> 16), static_cast<int>(std::sin(phase) * 32767))
            << c.hz;
        EXPECT_EQ(static_cast<std::int16_t>(rotation & 0xFFFF), static_cast<int>(std::cos(phase) * 32767))
            << c.hz;

        const ResponseFilter filter =
            buildResponseFilter(*master().corrections, true, 1, 2e-9, c.band == 0 ? 0 : c.index);
        const auto block = tapBlock(filter.taps);
        EXPECT_TRUE(contains(packetOf(config, 3), Words(block.begin() + 4, block.end() - 1))) << c.hz;
    }
}

TEST_F(StreamPlan, OwnFrequenciesTakeTheFineGrid) {
    struct Case {
        double hz;
        double loHz;
        int band;
    };
    const Case cases[] = {
        {2'345'678'901.0, 2'367'187'500.0, 13}, {30e6, 54'687'500.0, 0}, {18.2e9, 18'222'656'250.0, 19}};
    for (const auto& [hz, loHz, band] : cases) {
        makeGroup(1, {2});
        master().channelFreq[2] = hz;
        // Gain and offsets are those of the shared frequency, the level is that of the channel's own.
        master().sharedFreq = 9e9;
        master().streamAtten = 3;
        const Words words = packetOf(planStream(master())[0].config, 2);
        const CorrectionState& corrections = *master().corrections;
        constexpr int sharedIndex = 231;
        const int index = frequencyIndexFor(hz + 23'437'500);
        const LoftPair loft = lookupLoft(corrections, 2, sharedIndex);
        const auto frontEnd = buildFrontEndImage({.channel = 2,
                                                  .band = band,
                                                  .attenuatorDb = 15,
                                                  .gainCode = lookupGainCode(corrections, 2, sharedIndex),
                                                  .loftI = loft.i,
                                                  .loftQ = loft.q});
        EXPECT_TRUE(contains(words, Words(frontEnd.begin(), frontEnd.end()))) << hz;
        const ResponseFilter filter = buildResponseFilter(corrections, false, 2, 0.0, band == 0 ? 0 : index);
        EXPECT_FLOAT_EQ(static_cast<float>(20 * std::log10(master().streamCorrection[2])),
                        static_cast<float>(lookupGain(corrections, 2, 3, index) + filter.gainDb))
            << hz;
        LoContext context;
        EXPECT_TRUE(contains(words, retuneChannelLo(context, 2, band, loHz, false, IdleHighLo::off))) << hz;
        const double offset = band == 0 ? -hz : loHz - hz;
        const auto counts = static_cast<std::int64_t>(std::floor(std::ldexp(offset, 56) / 125e6 + 0.5));
        const auto low = static_cast<std::uint32_t>(counts), high = static_cast<std::uint32_t>(counts >> 32);
        EXPECT_TRUE(contains(words, {0x04020304, low, high & 0x3FFFFFFF, 0, 0})) << hz;
        EXPECT_FALSE(contains(words, {0x0402030E})) << hz;
    }
}

TEST_F(StreamPlan, BandwidthStaysNarrowedUntilItIsSetAgain) {
    makeGroup(1, {1});
    HXRDevice& unit = master();
    for (const auto& [decimation, hardware] : {std::pair(8, 4), std::pair(1, 1)}) {
        unit.decimation = decimation;
        unit.hardwareDecimation = hardware;
        unit.hostDecimation = decimation / hardware;
        planStream(unit);
        EXPECT_EQ(unit.hardwareBandwidth, 10e6);
        EXPECT_EQ(unit.outputBandwidth, 5e6);
    }
}

TEST(ContextFields, AreScaledAndSigned) {
    CommandList list;
    list.beginPacket();
    appendContextFields(list, 2, {40e6, 1e9, -3.5, -10, 50e6});
    EXPECT_EQ(Words(list.words().begin(), list.words().begin() + 12),
              (Words{0x04090052, 0xA9A64000, 0x00002625, 0xA0000000, 0x0003B9AC, 0xA0000000, 0xFFFFFE40,
                     0x0000FB00, 0x00002FAF, 0x08000000, 0, 0}));
}

}  // namespace
}  // namespace hxr
