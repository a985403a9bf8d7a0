#include "sim/sequencer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <vector>

#include "sim/stream_destination.h"
#include "support/sequencer_fixture.h"
#include "synthesizer_images.h"

namespace hxr::sim {
namespace {

using SequencerTest = test::SequencerFixture;
using test::Words;

TEST_F(SequencerTest, FindsNoFaultInSequencesOfASoundHost) {
    const Words packets[] = {
        {0x0E000000},
        {0x04010007, 1700000000, 0, 0, 0, 0, 0x04010005, 1699920000, 0, 0, 0, 0},
        {0x0F000100, 0x1F000001, 0x05000001, 0, 0},
        {0x1E000080, 0x12000001},
        {0x0F000100, 0x1F000000, 0x05000001, 0, 0},
        {0x5103FFD0, 0x5104FF07, 0x5106FF72, 0x5107FF24, 0x4C000000, 0x49040C03, 0x49040BFF, 1},
        test::sharedImage(),
        {0x4C000000, 0x05004000, 0, 0, 0x4B189000, 0x0B0C9000},
        {0x4A1F80A3, 0x4A1F80A2, 0x4A001901, 0x4A000008},
        test::highImage(0x9),
        {0x92380001, 0x90002B83, 0x41000081, 0x90002B83, 0x4C000000},
        {0x51071010, 0x84000000, 0x81000803, 0x81000800, 0x81001600, 0xC4000000, 0xC1000803, 0x4B1F7FFF},
        {0x810019F0, 0x81001AF0, 0x81000D08, 0x51071000, 0x81000D00, 0xC1000D00},
        {0xB300C1E0, 0xB1000000, 0xB4000018, 0xF300C1E0, 0xF1000000, 0xF4000018, 0x0100000F},
        {0x45002500, 0x90002B83, 0x41000081, 0x90002B83, 0xE0002B83, 0x44000081, 0xE0002B83, 0x4C000000},
        {0x51043F27, 0x47060000, 0x51066060, 0x51070200},
        {0x04040320, 0xC0A80202, 0x137F0001, 0x5E000001, 0x055324FB, 0, 0},
        {0x92183333, 0x93001F60, 0x91000008, 0x94001529, 0x52000100, 0x5100FF88, 1, 1, 0x4C000000, 0x05000009,
         0, 0},
        {0x0F003340, 0x04020300, 0, 0x00300000, 0, 0, 0x13000001, 0x05012710, 0, 0, 0x12000004, 0x058303E8, 0,
         0, 0x11000008},
        {0x0F003370, 0x0F00330F, 0x0F00324E, 0x0F00110F, 0x0F003040},
    };
    for (const Words& packet : packets) sequencer.runControlPacket(packet);
    EXPECT_TRUE(rules.lines().empty()) << rules.lines().front();
    EXPECT_EQ(outputs.text,
              "stop;pause 1;page 128;pause 1;pause 16384;pause 9;pause 10000;samples 4;pause 1000;status;");
}

TEST_F(SequencerTest, CountsEveryBrokenRuleOnce) {
    const struct {
        const char* rule;
        Words words;
    } cases[] = {
        {"group timing", {0x01B20008}},
        {"strobe mask", {0x01000005}},
        {"empty block", {0x04000030, 0, 0}},
        {"cut block", {0x04050030, 1, 2}},
        {"filler behind one register", {0x04010005, 9, 0, 0, 0, 0x4C000000}},
        {"filler behind a block", {0x04020005, 9, 9, 0, 0x4C000000}},
        {"filler behind a pause", {0x05000001, 0, 0x4C000000}},
        {"pause mode", {0x05020001, 0, 0}},
        {"timebase mode", {0x0B010000}},
        {"timebase bring-up value", {0x0B0C9001}},
        {"fan", {0x0C0201C4}},
        {"stream start", {0x01000006, 0x0EA2137F}},
        {"stream that isn't configured", {0x01000008, 0x0E01137F}},
        {"route bits", {0x0F000400}},
        {"focus input", {0x0F003120}},
        {"focus input streamed", {0x0F003141}},
        {"input selection", {0x13001000}},
        {"empty capture", {0x0F003040, 0x13000001, 0x12000000}},
        {"capture without an input", {0x0F003040, 0x13000000, 0x12000001}},
        {"capture of two inputs", {0x0F003070, 0x13000801, 0x12000001}},
        {"capture of another input", {0x0F003050, 0x13000800, 0x12000001}},
        {"latch position", {0x1D000003}},
        {"latch without a read", {0x1D000000}},
        {"read line of the other channel", {0x98000003}},
        {"read off the line", {0x98000002, 0x98000000, 0x90805F00, 0x1D000004}},
        {"page outside flash mode", {0x1E000080}},
        {"flash mode without its route", {0x0F003200, 0x1F000001, 0x0F000100, 0x1F000000}},
        {"read without a page", {0x0F000100, 0x1F000001, 0x12000001, 0x1F000000}},
        {"two pages at once", {0x0F000100, 0x1F000001, 0x1E000080, 0x12000002, 0x1F000000}},
        {"page below the image", {0x0F000100, 0x1F000001, 0x1E00007F, 0x12000001, 0x1F000000}},
        {"page above the image", {0x0F000100, 0x1F000001, 0x1E000480, 0x12000001, 0x1F000000}},
        {"pattern length", {0x20001000}},
        {"generator sample", {0x04021FFE, 0xE0001FFF, 0x20000000, 0, 0}},
        {"expander register", {0x51084040}},
        {"expander mask", {0x51044060}},
        {"input switch mask", {0x52000102}},
        {"message to the GPS chip", {0x04020020, 21, 22, 0, 0}},
        {"checksum of data packets", {0x0404032C, 0xC0A80202, 0x137F0001, 0, 0x055224FB, 0, 0}},
        {"checksum of context packets", {0x0404032C, 0xC0A80202, 0x137F0001, 0, 0x055324FA, 0, 0}},
        {"checksum for another address", {0x0404032C, 0xC0A80203, 0x137F0001, 0, 0x055324FB, 0, 0}},
    };
    for (const auto& test : cases) {
        rules.clear();
        sequencer.runControlPacket(test.words);
        EXPECT_EQ(rules.brokenRules(), 1u) << test.rule;
        EXPECT_EQ(rules.unknownWords(), 0u) << test.rule;
    }
}

TEST_F(SequencerTest, CountsWordsThatNearlyAreOnes) {
    for (const std::uint32_t word : {0x02000000U, 0x06025169U, 0x0F010100U, 0x11000009U, 0x1F000002U,
                                     0x46000000U, 0x4C000001U, 0x52001000U, 0x95000000U}) {
        rules.clear();
        sequencer.runControlPacket(Words{word});
        EXPECT_EQ(rules.unknownWords(), 1u) << std::hex << word;
    }
}

TEST_F(SequencerTest, KeepsRegistersChipsAndModes) {
    sequencer.runControlPacket(Words{0x04030300, 11,         12,         13,         0,
                                     0,          0x41002505, 0x5104FF0F, 0x51046020, 0x51040C00,
                                     0x92183333, 0x90002B83, 0x0B041234, 0x04020020, 21,
                                     22,         0,          0,          0x01000006, 0x0E010000});
    const UnitState state = sequencer.state();
    EXPECT_EQ(state.registers.read(0x302), 13u);
    EXPECT_EQ(state.registers.read(0x303), std::nullopt);
    EXPECT_EQ(state.registers.read(0x20), std::nullopt) << "what goes to the GPS chip stays in no register";
    ASSERT_EQ(state.gpsMessages.size(), 1u);
    EXPECT_EQ(state.gpsMessages[0], (Words{21, 22}));
    EXPECT_EQ(state.chips.chipRegister(0x41, 0x25), 5);
    EXPECT_EQ(state.chips.chipRegister(0x42, 0x25), std::nullopt);
    EXPECT_EQ(state.chips.channelRegister(9, 2, 0x18), 0x3333u);
    EXPECT_EQ(state.chips.channelRegister(9, 0, 0x2B), 0x83u);
    EXPECT_EQ(state.expander[4], 0x23);
    EXPECT_EQ(state.timebaseDac, 0x1234);
    EXPECT_TRUE(state.streaming);
}

TEST_F(SequencerTest, KeepsWhereEachInputsPacketsGo) {
    EXPECT_FALSE(streamDestination(sequencer.state().registers, 1));
    run({0x04040324, 0x0A01FFFE, 0x138002A0, 0xB1C2D3E4, 0xBDFDDDA5, 0, 0});
    run({0x0404032C, 0, 0x13800000, 0, 0xC7FDE7A5, 0, 0});
    const RegisterFile registers = sequencer.state().registers;
    const auto destination = streamDestination(registers, 1);
    ASSERT_TRUE(destination);
    EXPECT_EQ(destination->to, Endpoint::of("10.1.255.254", 4992));
    EXPECT_EQ(destination->hardwareAddress, 0x02A0B1C2D3E4u);
    EXPECT_EQ(streamDestination(registers, 3)->to, Endpoint::of("0.0.0.0", 4992));
    EXPECT_FALSE(streamDestination(registers, 2));
    EXPECT_EQ(breaches(), "");
}

TEST_F(SequencerTest, SteersItsTimebaseByGpsOnlyInThatModeAndWithAGoodFix) {
    const Oscillator slow{.trueDac = 0x8010, .stepPerRecord = 6};
    const auto dacAfter = [&](const Words& words, bool goodFix, const Oscillator& oscillator) {
        run(words);
        const UnitReport report = sequencer.report(goodFix, oscillator, {});
        EXPECT_EQ(sequencer.state().timebaseDac, report.timebaseDac);
        return std::pair<int, bool>(report.timebaseDac, report.disciplines);
    };
    EXPECT_EQ(dacAfter({0x0B048000}, true, slow), std::pair(0x8000, false));
    EXPECT_EQ(dacAfter({0x0B088000}, false, slow), std::pair(0x8000, false));
    EXPECT_EQ(dacAfter({}, true, slow), std::pair(0x8006, true));
    EXPECT_EQ(dacAfter({}, true, slow), std::pair(0x800C, true));
    EXPECT_EQ(dacAfter({}, false, slow), std::pair(0x800C, false)) << "it holds";
    EXPECT_EQ(dacAfter({}, true, slow), std::pair(0x8010, true));
    EXPECT_EQ(dacAfter({}, true, {.trueDac = 0x0003}), std::pair(0x0003, true));
    EXPECT_EQ(dacAfter({0x0B081234}, true, {}), std::pair(0x1234, true));
}

TEST_F(SequencerTest, GivesSamplesOnTheDataSocketOnlyWhileAStreamRuns) {
    sequencer.runDataPacket(Words{0x43660040});
    EXPECT_EQ(rules.brokenRules(), 1u);
    sequencer.runControlPacket(Words{0x01000006, 0x0E01137F});
    sequencer.runDataPacket(Words{0x43660040, 0, 0});
    sequencer.runDataPacket(Words{0x11000008});
    EXPECT_EQ(outputs.text, "start;stream 64;");
    EXPECT_EQ(rules.brokenRules(), 1u);
    EXPECT_EQ(rules.unknownWords(), 1u);
}

}  // namespace
}  // namespace hxr::sim
