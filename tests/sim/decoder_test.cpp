#include "sim/decoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace hxr::sim {
namespace {

/// An operation's fields as one list of numbers, its kind told by name.
struct Fields {
    std::string operator()(const SyncStrobe& s) const { return line("strobe", s.timing, s.mask); }
    std::string operator()(const RegisterBlock& b) const { return line("block", b.address, b.announced); }
    std::string operator()(const Pause& p) const { return line("pause", p.mode, p.ticks); }
    std::string operator()(const ChainDelay& c) const { return line("chain", c.delay); }
    std::string operator()(const Timebase& t) const { return line("timebase", t.mode, t.dac); }
    std::string operator()(const FanSetting& f) const { return line("fan", f.off, f.setPoint); }
    std::string operator()(const StreamEnable& s) const { return line("stream", s.start, s.port); }
    std::string operator()(const ContextSetup& c) const { return line("context", c.enabled, c.interval); }
    std::string operator()(const Route& r) const { return line("route", r.bits); }
    std::string operator()(const StatusRequest&) const { return "status"; }
    std::string operator()(const Capture& c) const { return line("capture", c.datagrams); }
    std::string operator()(const InputSelect& s) const { return line("input", s.inputs); }
    std::string operator()(const LatchReadByte& l) const { return line("latch", l.position); }
    std::string operator()(const SelectPage& s) const { return line("page", s.page); }
    std::string operator()(const FlashReadMode& m) const { return line("flash", m.on); }
    std::string operator()(const PatternLength& p) const { return line("pattern", p.lastAddress); }
    std::string operator()(const SampleRequest& r) const { return line("samples", r.datagrams); }
    std::string operator()(const ChipWrite& w) const { return line("chip", w.chip, w.address, w.value); }
    std::string operator()(const ApplyChips&) const { return "apply"; }
    std::string operator()(const ExpanderWrite& w) const {
        return line("expander", w.index, w.mask, w.value);
    }
    std::string operator()(const BandSwitch& b) const { return line("bands", b.bits); }
    std::string operator()(const ChannelWrite& w) const {
        return line("channel", w.nibble, w.transfer, w.bits);
    }
    std::string operator()(const UnknownWord&) const { return "unknown"; }

    template <typename... Numbers>
    static std::string line(const char* kind, Numbers... numbers) {
        std::ostringstream text;
        text << kind;
        ((text << ' ' << std::uint64_t{numbers}), ...);
        return text.str();
    }
};

TEST(PacketDecoder, TakesEveryFormOfWordApart) {
    const struct {
        std::uint32_t word;
        const char* fields;
    } cases[] = {
        {0x01740008, "strobe 116 8"},
        {0x05012710, "pause 1 10000"},
        {0x06015169, "chain 20841"},
        {0x0B08ABCD, "timebase 8 43981"},
        {0x0C0001C4, "fan 0 452"},
        {0x0EA3137F, "stream 163 4991"},
        {0x0F003070, "route 12400"},
        {0x1001003F, "context 1 63"},
        {0x11000008, "status"},
        {0x12000040, "capture 64"},
        {0x13000110, "input 272"},
        {0x1D000007, "latch 7"},
        {0x1E00047F, "page 1151"},
        {0x1F000001, "flash 1"},
        {0x20000FFF, "pattern 4095"},
        {0x45002500, "chip 69 37 0"},
        {0x49040BFF, "chip 73 1035 255"},
        {0x4C000000, "apply"},
        {0x51044040, "expander 4 64 64"},
        {0x52000101, "bands 257"},
        {0x90002B83, "channel 9 0 11139"},
        {0xE4000028, "channel 14 4 40"},
        // Near misses: an operation that isn't there, or a fixed bit that is wrong.
        {0x02000000, "unknown"},
        {0x06025169, "unknown"},
        {0x0F010100, "unknown"},
        {0x11000009, "unknown"},
        {0x1F000002, "unknown"},
        {0x4366000A, "chip 67 26112 10"},
        {0x46000000, "unknown"},
        {0x4C000001, "unknown"},
        {0x52001000, "unknown"},
        {0x95000000, "unknown"},
    };
    for (const auto& test : cases) {
        const auto operations = decodePacket(std::vector{test.word});
        ASSERT_EQ(operations.size(), 1u);
        EXPECT_EQ(std::visit(Fields{}, operations[0].action), test.fields) << std::hex << test.word;
    }
    EXPECT_EQ(std::visit(Fields{}, decodeDataSocketWord(0x43660040)), "samples 64");
    EXPECT_EQ(std::visit(Fields{}, decodeDataSocketWord(0x11000008)), "unknown");
}

TEST(PacketDecoder, TellsCommandsFromFillerAndFromTheValuesOfABlock) {
    const std::vector<std::uint32_t> words = {0, 1,          0x04030020, 0, 0x11000008, 1,         0,
                                              0, 0x05000062, 1,          1, 1,          0x4C000000};
    const auto operations = decodePacket(words);
    ASSERT_EQ(operations.size(), 3u);
    EXPECT_EQ(operations[0].position, 2u);
    EXPECT_EQ(std::get<RegisterBlock>(operations[0].action).values,
              (std::vector<std::uint32_t>{0, 0x11000008, 1}));
    EXPECT_EQ(operations[0].fillerBehind, 2u);
    EXPECT_EQ(operations[1].fillerBehind, 3u);
    EXPECT_EQ(operations[2].position, 12u);
}

TEST(PacketDecoder, KeepsWhatIsThereOfABlockThatThePacketCutsOff) {
    const auto operations = decodePacket(std::vector<std::uint32_t>{0x04FF0100, 7, 8, 9});
    ASSERT_EQ(operations.size(), 1u);
    EXPECT_EQ(std::get<RegisterBlock>(operations[0].action).values.size(), 3u);
}

}  // namespace
}  // namespace hxr::sim
