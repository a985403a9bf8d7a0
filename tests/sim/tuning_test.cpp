#include "sim/tuning.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>

#include "support/sequencer_fixture.h"
#include "synthesizer_images.h"

namespace hxr::sim {
namespace {

using test::Words;

struct TuningTest : test::SequencerFixture {
    std::optional<double> loHz(std::size_t channel) { return sequencer.tuning(channel, {}).loHz; }
    std::optional<double> sharedHz() { return sharedLoHz(sequencer.state()); }
};

constexpr double ddsStepHz = 4e-6;

/// The shared synthesizer at 1 GHz: VCO 16 GHz, prescaled by 4, the lower sideband, VCO above it.
const Words sharedAtOneGHz = {0x45007003, 0x45003889, 0x45003720, 0x4500251C, 0x450024B0, 0x45001E90,
                              0x450010B8, 1,          1,          0x4D000440, 0x4D00161C, 1,
                              0x4901AB0B, 0x4901AA21, 0x4901A964, 0x4901A82C, 0x4901A785, 0x4901A691,
                              0x49000501, 1,          0x45007003, 0x5103A181, 0x51061010};

/// What 625 MHz needs beyond that: VCO 10 GHz, prescaled by 2, offset divider 5, main divider 115.
const Words sharedAt625MHz = {0x45001073, 0x4D00161D, 0x5103A180};

TEST_F(TuningTest, TheSharedSynthesizerLocksWhereItsLoopBalances) {
    run(test::sharedImage());
    run(sharedAtOneGHz);
    ASSERT_TRUE(sharedHz());
    EXPECT_NEAR(*sharedHz(), 1e9, ddsStepHz);
    run({0x45001E98});  // below the sideband: h = v / (1/4 + 1/92) = 11/12 of what it was
    EXPECT_NEAR(sharedHz().value_or(0), 11e9 / 12, ddsStepHz);
    run({0x45001E90});
    run(sharedAt625MHz);
    ASSERT_TRUE(sharedHz());
    EXPECT_NEAR(*sharedHz(), 625e6, ddsStepHz);
    EXPECT_EQ(breaches(), "");
}

TEST_F(TuningTest, TheSharedSynthesizerPutsNothingOutWithOneThingAmiss) {
    const struct {
        const char* what;
        Words words;
    } cases[] = {
        {"reset", {0x45000081}},
        {"output off", {0x45002500}},
        {"another offset divider", {0x4D00161E}},
        {"no offset divider", {0x4D001600}},
        {"another prescaler", {0x5103A180}},
        {"another main divider", {0x4500105C}},
        {"another DDS word", {0x4901ABF0, 0x49000501}},
        {"two sidebands", {0x5103A1A1}},
        {"no sideband", {0x5103A101}},
        {"the upper sideband with the lower one's filter", {0x5103A121}},
        {"two VCO cores", {0x45003839}},
        {"no VCO core", {0x45003809}},
        {"the group's synthesizer in its place", {0x51048080}},
    };
    for (const auto& test : cases) {
        run(test::sharedImage());
        run(sharedAtOneGHz);
        run({0x51048000});
        ASSERT_TRUE(sharedHz()) << test.what;
        run(test.words);
        EXPECT_FALSE(sharedHz()) << test.what << " " << sharedHz().value_or(0);
    }
}

TEST_F(TuningTest, ADdsWordWorksOnceTheChipIsToldToTakeIt) {
    run(test::sharedImage());
    run(sharedAtOneGHz);
    run({0x4901A6FF, 0x4901A7FF, 0x4901A8FF});
    EXPECT_NEAR(sharedHz().value_or(0), 1e9, ddsStepHz);
    run({0x4C000000, 0x4C000000});
    EXPECT_EQ(rules.brokenRules(), 1u) << breaches();
    run({0x49000501});
    // 13.9 million counts of 3.55 uHz more, and the loop's 1.045 Hz at the output for each Hz of the DDS.
    EXPECT_NEAR(sharedHz().value_or(0), 1e9 - 51.5, 1.0);
}

TEST_F(TuningTest, TheSharedSynthesizerCountsOn125MHzForItsReadback) {
    run(test::sharedImage());
    run({0x45003700, 0x45003800, 0x4500349E, 0x45002B00, 0x4500251E, 0x45002490, 0x45001E18, 0x45001701,
         0x45001600, 0x4500102F});
    EXPECT_EQ(sharedHz(), 47.5 * 125e6 / 2);
}

TEST_F(TuningTest, ALowSynthesizerFollowsItsDividers) {
    const struct {
        Words registers;
        std::optional<double> hz;
    } cases[] = {
        {{0x2480, 0x1700, 0x1600, 0x1028}, 5e9},          {{0x2490, 0x1701, 0x1600, 0x103E}, 3'906'250'000.0},
        {{0x24F0, 0x1700, 0x1600, 0x1028}, 39'062'500.0}, {{0x2480, 0x1701, 0x16F0, 0x103F}, 8e9 - 3'906'250},
        {{0x2480, 0x1700, 0x1610, 0x1040}, std::nullopt},  // VCO above its range
        {{0x2480, 0x1701, 0x16F0, 0x101F}, std::nullopt},  // below
        {{0x2500, 0x2480, 0x1600, 0x1028}, std::nullopt},  // output off
    };
    for (std::uint32_t channel = 0; channel < 4; ++channel) {
        const std::uint32_t chip = (0x41 + channel) << 24;
        for (const auto& test : cases) {
            run(test::lowImage(0x41 + channel));
            for (const std::uint32_t word : test.registers) run({chip | word});
            EXPECT_EQ(sequencer.state().synthesizers.lowLoHz(channel), test.hz) << channel;
        }
    }
    EXPECT_EQ(breaches(), "");
}

TEST_F(TuningTest, AResetSynthesizerStaysSilentAndTunesOnlyBehindItsImage) {
    run(test::lowImage(0x42));
    run({0x42000081, 0x42000018, 0x42002505, 0x42002480, 0x42001028});
    EXPECT_FALSE(sequencer.state().synthesizers.lowLoHz(1));
    EXPECT_NE(breaches().find("without its image (0x42001028"), std::string::npos);
    run({0xA0001028, 0x45001064});
    EXPECT_EQ(rules.brokenRules(), 2u) << "as since power-on";
    breaches();
    run(test::lowImage(0x42));
    run(test::highImage(0xA));
    EXPECT_TRUE(sequencer.state().synthesizers.lowLoHz(1));
    EXPECT_EQ(breaches(), "");
}

TEST_F(TuningTest, AHighSynthesizerCountsItsOutputOrFollowsTheSharedOne) {
    const Words ownReference = {0xD0002B01, 0xD00020C1};
    const Words following = {0xD0002B01, 0xD0002001, 0xD0001506, 0xD0001400};
    const struct {
        Words reference;
        Words dividers;
        double sharedHz;
        std::optional<double> hz;
    } cases[] = {
        {ownReference, {0xD0001502, 0xD0001400, 0xD0001120, 0xD0001028}, 0, 10e9},
        {ownReference, {0xD0001502, 0xD0001470, 0xD0001120, 0xD0001018}, 0, 6'054'687'500.0},
        {ownReference, {0xD00015C3, 0xD0001408, 0xD0001100, 0xD000104C}, 0, 19e9 + 0.515625 * 250e6},
        {ownReference, {0xD0001502, 0xD0001400, 0xD0001100, 0xD0001028}, 0, std::nullopt},  // VCO 10 GHz
        {ownReference, {0xD0002B83, 0xD0001502, 0xD0001400, 0xD0001028}, 0, std::nullopt},  // off
        {following, {0xD0001120, 0xD0001010}, 625e6, 10e9},
        {following, {0xD0001100, 0xD0001020}, 625e6, 20e9},
        {following, {0xD0001100, 0xD0001020}, 1e9, std::nullopt},
        {following, {0xD0001120, 0xD0001010}, 0, std::nullopt},
        {following, {0xD0001502, 0xD0001120, 0xD0001010}, 625e6, std::nullopt},  // with a fraction
    };
    run(test::highImage(0xD));
    for (const auto& test : cases) {
        run(test.reference);
        run(test.dividers);
        const auto shared = test.sharedHz == 0 ? std::nullopt : std::optional(test.sharedHz);
        EXPECT_EQ(sequencer.state().synthesizers.highLoHz(2, shared), test.hz)
            << test.hz.value_or(0) << " from " << test.sharedHz;
    }
    EXPECT_EQ(breaches(), "");
}

TEST_F(TuningTest, SwitchesLeadASynthesizerToEachMixer) {
    const struct {
        std::uint32_t word;
        std::size_t channel;
        LoPath path;
        int loFilter;
    } cases[] = {
        {0x5100FF88, 0, LoPath::ownLow, 4},       {0x5100FFB1, 0, LoPath::ownHigh, 0},
        {0x5101FFE1, 1, LoPath::ownHigh, 0},      {0x51012F2C, 1, LoPath::none, 6},
        {0x5101FF31, 1, LoPath::sharedOnHigh, 0}, {0x5102FF46, 2, LoPath::sharedOnLow, 3},
        {0x5102FF18, 2, LoPath::ownLow, 4},       {0x5102FF31, 2, LoPath::sharedOnHigh, 0},
        {0x5105FFB1, 3, LoPath::ownHigh, 0},      {0x5105FF26, 3, LoPath::ownLow, 6},
        {0x5105FF88, 3, LoPath::sharedOnLow, 1},  {0x5105FF61, 3, LoPath::sharedOnHigh, 0},
    };
    for (const auto& test : cases) {
        run({test.word});
        const PathSwitches switches = pathSwitches(sequencer.state().expander, test.channel);
        EXPECT_EQ(switches.path, test.path) << std::hex << test.word;
        EXPECT_EQ(switches.loFilter, test.loFilter) << std::hex << test.word;
    }
}

TEST_F(TuningTest, AChannelTakesTheFrequencyThatItsPathLeadsToIt) {
    for (const std::uint32_t nibble : {0x9, 0xA, 0xD, 0xE}) run(test::highImage(nibble));
    run(test::sharedImage());
    run(sharedAtOneGHz);
    run(sharedAt625MHz);
    run(test::lowImage(0x41));
    run({0x5100FF88, 0x41002505, 0x41002480, 0x41001700, 0x41001600, 0x41001028,  // own low, 5 GHz
         0x5101FF31, 0xA0002B01, 0xA0002001, 0xA0001010,                          // shared on high, x16
         0x5102FF46, 0xD0002B83,                                                  // shared on low
         0x5105FFB1, 0xE0001502, 0xE0001400, 0xE0001028});                        // own high, 10 GHz
    EXPECT_EQ(loHz(0), 5e9);
    EXPECT_NEAR(loHz(1).value_or(0), 10e9, 16 * ddsStepHz);
    EXPECT_NEAR(loHz(2).value_or(0), 625e6, ddsStepHz);
    EXPECT_EQ(loHz(3), 10e9);
    const LockFlags locks = lockFlags(sequencer.state());
    EXPECT_EQ(locks.first, 0b0001);
    EXPECT_EQ(locks.second, 0b1111);

    // A unit of a group takes the master's.
    run({0x45000081, 0x51048080});
    EXPECT_EQ(loHz(2), std::nullopt);
    EXPECT_EQ(sequencer.tuning(1, 625e6).loHz, 10e9);
    EXPECT_EQ(sequencer.tuning(2, 625e6).loHz, 625e6);
    EXPECT_EQ(lockFlags(sequencer.state()).second, 0b1001);

    // The path leads the unit's own reference away from a synthesizer that is set to the shared one.
    run({0x5101FFE1, 0x5105FF61});
    EXPECT_EQ(sequencer.tuning(1, 625e6).loHz, std::nullopt);
    EXPECT_EQ(sequencer.tuning(3, 625e6).loHz, std::nullopt);
}

TEST_F(TuningTest, AFrontEndStandsAsItsWordsSay) {
    const struct {
        Words words;
        std::size_t channel;
        std::optional<int> band;
        int attenuatorDb;
        int dcOffsetI;
        CaptureInput input;
    } cases[] = {
        {{0x92183333, 0x92193333, 0x921A8000, 0x921B8000, 0x93001F60, 0x91000008, 0x94001529, 0x52000100,
          0x13000001},
         0,
         14,
         0,
         0,
         {true, false, false}},
        {{0xA2180000, 0xA21A7FFF, 0xA3008034, 0xA1000009, 0xA4001020, 0x52000200, 0x13000020},
         1,
         17,
         20,
         -1,
         {false, true, false}},
        {{0xD21A8010, 0xD30001FE, 0xD400103F, 0x52000404, 0x13000400}, 2, 0, 30, 16, {false, false, true}},
        {{0xE21A8000, 0xE3000005, 0xE4001820, 0x52000800, 0x13000880}, 3, 19, 5, 0, {false, true, true}},
        {{0x94001528}, 0, 15, 0, 0, {}},            // the filter code of band 14, matched as for band 15
        {{0x52000101}, 0, std::nullopt, 0, 0, {}},  // the lower bands' input with it
        {{0xA4001820}, 1, std::nullopt, 20, -1, {}},
    };
    for (const auto& test : cases) {
        run({0x13000000});
        run(test.words);
        const ChannelTuning tuning = sequencer.tuning(test.channel, {});
        EXPECT_EQ(tuning.frontEnd.band, test.band) << std::hex << test.words[0];
        EXPECT_EQ(tuning.frontEnd.attenuatorDb, test.attenuatorDb) << std::hex << test.words[0];
        EXPECT_EQ(tuning.frontEnd.dcOffsetI, test.dcOffsetI) << std::hex << test.words[0];
        EXPECT_EQ(tuning.input.low, test.input.low) << std::hex << test.words[0];
        EXPECT_EQ(tuning.input.high, test.input.high) << std::hex << test.words[0];
        EXPECT_EQ(tuning.input.fullBand, test.input.fullBand) << std::hex << test.words[0];
    }
    EXPECT_EQ(sequencer.tuning(0, {}).frontEnd.gainCode, 8);
    EXPECT_EQ(sequencer.tuning(0, {}).frontEnd.dacValues, (std::array<std::uint16_t, 2>{0x3333, 0x3333}));
    EXPECT_EQ(breaches(), "");
}

TEST_F(TuningTest, TheGeneratorIsOnWhereItsSwitchesAgree) {
    using Range = GeneratorPath::Range;
    const struct {
        Words words;
        bool on;
        Range range;
        int step;
    } cases[] = {
        {{}, false, Range::low, 0},
        {{0x5103FFD0, 0x5104FF07, 0x5106FF72, 0x5107FF24}, false, Range::low, 7},  // bring-up
        {{0x51043F34, 0x51034800, 0x5106E060, 0x51074240, 0x47060000}, true, Range::belowOneGHz, 4},
        {{0x51043F02, 0x51034840, 0x5106E060, 0x51074242, 0x47060000}, true, Range::low, 2},
        {{0x51043F09, 0x51034808, 0x5106E0A0, 0x51074240, 0x470602AE}, true, Range::high, 1},
        {{0x51034848}, false, Range::high, 1},
        {{0x51043F27, 0x47060000, 0x51066060, 0x51070200}, false, Range::low, 7},
    };
    for (const auto& test : cases) {
        run(test.words);
        const GeneratorPath path = generatorPath(sequencer.state());
        EXPECT_EQ(path.on, test.on) << &test - cases;
        EXPECT_EQ(path.range, test.range) << &test - cases;
        EXPECT_EQ(path.attenuatorStep, test.step) << &test - cases;
        if (path.on && path.range == Range::high) {
            EXPECT_EQ(path.outputWord, 0x2AE);
        }
    }
}

}  // namespace
}  // namespace hxr::sim
