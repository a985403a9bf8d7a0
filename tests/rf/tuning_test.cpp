/// Closes the loop: what the words make of the simulated chips is what was asked for.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/front_end.h"
#include "rf/shared_lo.h"
#include "sim/synthetic_image.h"
#include "support/sequencer_fixture.h"

namespace hxr {
namespace {

/// How far half a step of the DDS moves an LO: its frequency, beside 1000 MHz, is what the loop multiplies.
double ddsResolution(double loHz) {
    constexpr double halfStepHz = 0.5e9 / 281'474'976'710'656.0;
    constexpr double lowestOffsetHz = 950e6, arithmeticHz = 4e-6;
    return halfStepHz * loHz / lowestOffsetHz + arithmeticHz;
}

/// A unit of chips alone, brought up.
class Tuning : public test::SequencerFixture, public testing::WithParamInterface<bool> {
  protected:
    Tuning() {
        if (GetParam()) {
            const auto image = sim::makeSyntheticImage({});
            const auto data = std::make_unique<HXRCBBData>();
            std::memcpy(data.get(), image.data(), sizeof *data);
            loadLoTables(context, *data);
        }
        send(buildSharedLoBringUp(SharedLoVco::tabled));
        for (int channel = 0; channel < words::channelsPerUnit; ++channel) {
            send(buildHighLoImage(channel));
            send(buildLowLoImage(context, channel));
        }
    }

    void send(const WordRun& run) {
        CommandList list = singlePacket(run);
        list.append(words::applyPeripherals);
        this->run(list.words());
    }

    /// Tunes a channel, front end and input included, and looks at what it does then.
    sim::ChannelTuning tune(int channel, double loHz, bool shared, IdleHighLo idle) {
        const int band = bandForFrequency(static_cast<float>(loHz - ifOffsetHz));
        if (shared) send(tuneSharedLo(context, band, loHz));
        CommandList list = singlePacket(buildFrontEndImage({.channel = channel,
                                                            .band = band,
                                                            .attenuatorDb = channel * 10,
                                                            .gainCode = band,
                                                            .loftI = -channel}));
        list.append(retuneChannelLo(context, channel, band, loHz, shared, idle));
        list.append(words::applyPeripherals);
        appendInputSelect(list, shared, channel, band);
        this->run(list.words());
        return sequencer.tuning(static_cast<std::size_t>(channel), {});
    }

    LoContext context;
};

INSTANTIATE_TEST_SUITE_P(TuningData, Tuning, testing::Bool(),
                         [](const auto& row) { return row.param ? "Factory" : "None"; });

TEST_P(Tuning, ChipsMakeTheLoThatWasAskedFor) {
    constexpr int firstLine = 18, lastLine = 5130;
    using sim::LoPath;
    int tuned = 0;
    for (int line = firstLine; line <= lastLine; line += 3) {
        const double loHz = line * fineGridHz;
        const int channel = line % words::channelsPerUnit;
        const IdleHighLo idle = line / 4 % 2 == 0 ? IdleHighLo::parked : IdleHighLo::off;
        for (const bool shared : {false, true}) {
            const sim::ChannelTuning tuning = tune(channel, loHz, shared, idle);
            const int band = bandForFrequency(static_cast<float>(loHz - ifOffsetHz));
            const bool high = isHighBand(band);
            const LoPath path = shared ? (high ? LoPath::sharedOnHigh : LoPath::sharedOnLow)
                                       : (high ? LoPath::ownHigh : LoPath::ownLow);
            ASSERT_EQ(tuning.lo.path, path) << loHz;
            ASSERT_TRUE(tuning.loHz) << loHz << (shared ? " shared" : " own");
            ASSERT_NEAR(*tuning.loHz, loHz, shared ? ddsResolution(loHz) : 0.0)
                << (shared ? "shared" : "own");
            ASSERT_EQ(tuning.frontEnd.band, band) << loHz;
            ASSERT_EQ(tuning.frontEnd.attenuatorDb, channel * 10);
            ASSERT_EQ(tuning.frontEnd.gainCode, band);
            ASSERT_EQ(tuning.input.low, !high && !shared);
            ASSERT_EQ(tuning.input.fullBand, shared);
            ++tuned;
        }
    }
    EXPECT_GT(tuned, 3000);
    EXPECT_EQ(breaches(), "");
}

TEST_P(Tuning, WholeRangeOfTheSharedLoIsReached) {
    for (int step = 80'001; step <= 160'000; step += 23) {
        const double loHz = step * 100e3 / 2;
        send(tuneSharedLo(context, lastLowBand, loHz));
        const auto made = sim::sharedLoHz(sequencer.state());
        ASSERT_TRUE(made) << loHz;
        ASSERT_NEAR(*made, loHz, ddsResolution(loHz));
    }
    EXPECT_EQ(breaches(), "");
}

}  // namespace
}  // namespace hxr
