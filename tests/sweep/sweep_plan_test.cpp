#include "sweep/sweep_plan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "cal/correction_lookup.h"
#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "sim/decoder.h"
#include "sim/synthetic_image.h"

namespace hxr {
namespace {

using Words = std::vector<std::uint32_t>;

static_assert(ncoResolutionHz == 1.734723475976807e-9);

/// A unit with synthetic corrections.
class Sweeps : public testing::Test {
  protected:
    Sweeps() {
        const auto bytes = sim::makeSyntheticImage({});
        corrections.image = platform::makeAligned<HXRCalData>();
        std::memcpy(corrections.image.get(), bytes.data(), bytes.size());
        updateTemperature(corrections, 31.0F);
    }

    PlannedSweep plan(int channel = 0) { return planSweep(settings, {synthesizers, corrections, channel}); }

    PlannedSweep planBetween(double start, double stop, int channel = 0) {
        settings.sweepCenter = (start + stop) / 2;
        settings.sweepSpan = stop - start;
        return plan(channel);
    }

    /// The words of a record's packet, up to its end.
    static Words packetOf(const PlannedSweep& sweep, std::size_t record) {
        const auto packet = sweep.commands.packet(record + 1);
        return {packet.begin(), packet.end()};
    }

    SweepSettings settings;
    LoContext synthesizers;
    CorrectionState corrections;
};

TEST_F(Sweeps, SizesFollowFromBandwidthsAndWindow) {
    struct Case {
        double rbw, vbw;
        std::uint32_t window;
        int windowLength, fftSize;
        double actualRBW;
        std::uint32_t ffts;
        int blocks;
    };
    const Case cases[] = {
        {10e3, 10e3, 0, 18850, 32768, 10000.5305, 1, 10}, {10e3, 20e3, 0, 18850, 32768, 10000.5305, 1, 10},
        {100, 100, 0, 1885100, 2097152, 100, 1, 921},     {10e6, 10e6, 0, 18, 64, 10472777.78, 1, 1},
        {10e6, 100, 0, 18, 64, 10472777.78, 100000, 782}, {100e3, 25e3, 0, 1884, 2048, 100058.39, 4, 2},
        {100e3, 12.5e3, 1, 1010, 1024, 100059.4, 8, 2},   {1e6, 1e6, 2, 132, 256, 1003787.88, 1, 1},
    };
    settings.sweepTime = 1e-6;
    for (const Case& c : cases) {
        settings.sweepRBW = c.rbw;
        settings.sweepVBW = c.vbw;
        settings.sweepWindow = c.window;
        const auto [plan, result, commands] = this->plan();
        EXPECT_EQ(plan.windowLength, c.windowLength) << c.rbw;
        EXPECT_EQ(plan.fftSize, c.fftSize) << c.rbw;
        EXPECT_EQ(plan.padLength, c.fftSize - c.windowLength) << c.rbw;
        EXPECT_EQ(plan.fftsPerStep, c.ffts) << c.rbw << ' ' << c.vbw;
        EXPECT_EQ(plan.blocksPerStep, c.blocks) << c.rbw << ' ' << c.vbw;
        EXPECT_NEAR(result.actualRBW, c.actualRBW, c.actualRBW * 1e-7) << c.rbw;
        EXPECT_EQ(result.actualVBW, c.vbw);
        EXPECT_EQ(result.binSize, 50e6 / c.fftSize);
    }
}

TEST_F(Sweeps, LongerTimesTakeMoreBlocksShorterOnesNone) {
    // 26 steps of 25 us each and what is left for blocks of 40.96 us.
    struct Case {
        double time;
        int blocks;
        std::uint32_t ffts;
    };
    const Case cases[] = {{0.001, 10, 1},
                          {26 * (25e-6 + 10.4 * 40.96e-6), 10, 1},
                          {26 * (25e-6 + 10.6 * 40.96e-6), 11, 1},
                          {26 * (25e-6 + 40 * 40.96e-6), 40, 8},
                          {1.0, 938, 233},
                          {10.0, 1024, 254}};
    for (const auto& [time, blocks, ffts] : cases) {
        settings.sweepTime = time;
        const SweepPlan plan = this->plan().plan;
        EXPECT_EQ(plan.blocksPerStep, blocks) << time;
        EXPECT_EQ(plan.fftsPerStep, ffts) << time;
    }
}

TEST_F(Sweeps, StepsCoverTheSpanAndTheFirstBinStandsAtItsStart) {
    struct Case {
        double start, stop;
        std::uint32_t firstStep, lastStep;
        int records;
    };
    const Case cases[] = {
        {9.5e9, 10.5e9, 244, 269, 26}, {100e3, 20e9, 1, 513, 519}, {100e3, 1e6, 1, 1, 1},
        {30e6, 70e6, 1, 2, 4},         {50e6, 60e6, 2, 2, 3},      {308.59375e6, 320e6, 9, 9, 1},
        {300e6, 310e6, 8, 9, 3},       {1e9, 1.0001e9, 26, 26, 1}, {19.99e9, 19.995e9, 512, 512, 1},
        {19.997e9, 20e9, 1, 513, 519},  // the last step is no first one: the sweep runs from the bottom
    };
    for (const Case& c : cases) {
        const auto [plan, result, commands] = planBetween(c.start, c.stop);
        ASSERT_EQ(plan.stepCount, c.records) << c.start;
        ASSERT_EQ(plan.steps.size(), static_cast<std::size_t>(c.records));
        EXPECT_EQ(commands.packetCount(), plan.steps.size() + 1);
        EXPECT_EQ(plan.steps.front().step, c.firstStep) << c.start;
        EXPECT_EQ(plan.steps.back().step, c.lastStep) << c.start;

        const double lower = c.firstStep * 39.0625e6 - 23.4375e6 - 19.53125e6;
        EXPECT_EQ(plan.firstBin, std::trunc((result.startFreq - lower) / result.binSize)) << c.start;
        EXPECT_NEAR(result.startFreq, c.start, 1e-5);
        EXPECT_EQ(result.points, std::trunc((c.stop - c.start) / result.binSize + 2)) << c.start;

        // Laid end to end the records are a row of bins without a gap.
        std::int64_t bins = 0;
        for (const SweepStep& step : plan.steps) bins += step.binCount;
        EXPECT_EQ(bins, std::int64_t{c.lastStep - c.firstStep + 1} * plan.fftSize * 50 / 64) << c.start;
    }
}

TEST_F(Sweeps, PlainStepIsTheKnownRunOfWords) {
    settings.sweepTime = 1e-6;
    corrections.image->channelGainCode[0][100] = 8;
    for (auto& row : corrections.image->loftI[0]) row = 0;
    for (auto& row : corrections.image->loftQ[0]) row = 0;
    const PlannedSweep sweep = planBetween(3.83e9, 3.9e9);  // steps 99 and 100
    ASSERT_EQ(sweep.plan.steps.back().step, 100U);

    const Words packet = packetOf(sweep, 1);
    EXPECT_EQ(packet[0], 0x044400FCU);
    const Words expected{0x92183333, 0x92193333, 0x921A8000, 0x921B8000, 0x93001F60, 0x91000008, 0x94001529,
                         0x52000100, 0x5100FF88, 0x90002B83, 0x41000018, 0x41002505, 0x41002490, 0x41001701,
                         0x41001600, 0x4100103E, 1,          1,          0x4C000000, 0x05000009, 0,
                         0,          0x04020300, 0,          0x00300000, 0,          0,          0x05000009,
                         0,          0,          0x13000001, 0x05012710, 0,          0,          0x05000009,
                         0,          0,          0x1200000A, 0x058303E8, 0,          0,          0x11000008};
    EXPECT_EQ(Words(packet.begin() + 71, packet.begin() + 71 + static_cast<int>(expected.size())), expected);
    EXPECT_EQ(packet[71 + expected.size()], 0U);

    const Words head(sweep.commands.packet(0).begin(), sweep.commands.packet(0).begin() + 64);
    Words image = buildLowLoImage(synthesizers, 0);
    image.insert(image.end(), {0x050003D8, 0, 0, 0});
    EXPECT_EQ(head, image);
    EXPECT_EQ(sweep.commands.dataReplies(), (Words{0, 10, 10}));
    EXPECT_EQ(sweep.commands.statusReplies(), (Words{0, 0, 1}));
}

/// The pause of a packet in which its front end settles: the last one before the NCO's block.
std::uint16_t settlingTicks(const Words& packet) {
    std::uint16_t ticks = 0;
    for (const sim::Operation& operation : sim::decodePacket(packet)) {
        if (const auto* block = std::get_if<sim::RegisterBlock>(&operation.action);
            block && block->address >= 0x300)
            break;
        if (const auto* pause = std::get_if<sim::Pause>(&operation.action)) ticks = pause->ticks;
    }
    return ticks;
}

TEST_F(Sweeps, SettlingLastsLongerWhereTheBandOrThePathChanges) {
    struct Case {
        double start, stop;
        std::vector<std::uint16_t> ticks;
    };
    const Case cases[] = {
        {3.83e9, 3.92e9, {98, 9, 98}},      // band 14, then 15 from step 101 on
        {5.53e9, 5.63e9, {492, 9, 98, 9}},  // the whole sweep crosses into the high path
        {5.63e9, 5.7e9, {98, 9, 9}},       {100e3, 60e6, {98, 9, 98, 98}},
        {270e6, 340e6, {98, 98, 9}},  // the last splice's band goes on
    };
    for (const Case& c : cases) {
        const PlannedSweep sweep = planBetween(c.start, c.stop);
        std::vector<std::uint16_t> ticks;
        for (std::size_t i = 0; i < sweep.plan.steps.size(); ++i)
            ticks.push_back(settlingTicks(packetOf(sweep, i)));
        EXPECT_EQ(ticks, c.ticks) << c.start;
    }
}

TEST_F(Sweeps, SplicedRecordsTakeTheirRowsValues) {
    const PlannedSweep sweep = planBetween(100e3, 309e6);
    ASSERT_GE(sweep.plan.steps.size(), lowStepSplices.size());
    for (std::size_t i = 0; i < lowStepSplices.size(); ++i) {
        const LowStepSplice& row = lowStepSplices[i];
        const SweepStep& step = sweep.plan.steps[i];
        const int gainIndex = row.inverted ? 1 : row.calIndex;
        const ResponseFilter filter =
            buildResponseFilter(corrections, false, 0, 0.0, row.inverted ? 0 : row.calIndex);
        EXPECT_EQ(step.inverted, row.inverted) << i;
        EXPECT_EQ(step.firstBin * 64, static_cast<int>(row.firstBin64) * sweep.plan.fftSize) << i;
        EXPECT_EQ(step.gainDb, static_cast<float>(lookupGain(corrections, 0, 0, gainIndex) + filter.gainDb))
            << i;
        EXPECT_EQ(step.taps, filter.taps) << i;
        const std::uint32_t gainCode = corrections.image->channelGainCode[0][gainIndex];
        EXPECT_EQ(packetOf(sweep, i)[76], 0x91000000 + gainCode) << i;
    }
    // Row 1: 31.25 MHz goes to the middle, a quarter of the NCO's clock.
    const Words packet = packetOf(sweep, 1);
    const Words nco{0x04020300, 0, 0x00400000, 0, 0};
    EXPECT_NE(std::search(packet.begin(), packet.end(), nco.begin(), nco.end()), packet.end());
}

TEST_F(Sweeps, EveryPacketOfEveryPlanIsRunByTheReceiver) {
    struct Case {
        double start, stop;
        int channel;
        bool tabled;
    };
    const Case cases[] = {
        {100e3, 20e9, 0, false}, {100e3, 20e9, 3, true}, {100e3, 5.4e9, 1, true}, {6e9, 9e9, 2, false}};
    for (const Case& c : cases) {
        synthesizers = LoContext();
        synthesizers.cbbLoaded = c.tabled;
        const PlannedSweep sweep = planBetween(c.start, c.stop, c.channel);
        int highLoImages = 0;
        for (std::size_t i = 0; i < sweep.plan.steps.size(); ++i) {
            int captures = 0;
            for (const sim::Operation& operation : sim::decodePacket(packetOf(sweep, i))) {
                EXPECT_FALSE(std::holds_alternative<sim::UnknownWord>(operation.action)) << operation.word;
                captures += std::holds_alternative<sim::Capture>(operation.action) ? 1 : 0;
                const auto* write = std::get_if<sim::ChannelWrite>(&operation.action);
                highLoImages += write != nullptr && write->transfer == 2 && write->bits == 0x380001 ? 1 : 0;
            }
            EXPECT_EQ(captures, 1) << i;
        }
        EXPECT_EQ(highLoImages, c.stop > 5.6e9 ? 1 : 0) << c.start;
    }
}

}  // namespace
}  // namespace hxr
