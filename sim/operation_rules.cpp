#include "sim/operation_rules.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <variant>

#include "sim/flash_memory.h"
#include "sim/unit_state.h"

namespace hxr::sim {
namespace {

using Breach = std::optional<std::string>;

/// Timing bytes of a unit alone and of the four places in a group, master first.
constexpr std::array<std::uint8_t, 5> timings = {0, 0xA2, 0x74, 0x44, 0x14};

template <typename Range, typename Value>
bool oneOf(const Range& range, Value value) {
    return std::find(std::begin(range), std::end(range), value) != std::end(range);
}

/// Whether both rails of a generator sample are numbers of 14 bits.
bool fitsConverters(std::uint32_t sample) {
    constexpr int most = 8192;
    const auto fits = [](std::uint32_t half) {
        const auto value = static_cast<std::int16_t>(static_cast<std::uint16_t>(half));
        return value >= -most && value < most;
    };
    return fits(sample) && fits(sample >> 16);
}

struct FieldRules {
    Breach operator()(const SyncStrobe& strobe) const {
        constexpr std::array<std::uint16_t, 4> masks = {4, 6, 8, 15};
        if (!oneOf(timings, strobe.timing)) return "sync strobe with an impossible group timing";
        if (!oneOf(masks, strobe.mask)) return "sync strobe with an impossible mask";
        return {};
    }

    Breach operator()(const RegisterBlock& block) const {
        if (block.announced == 0) return "register block of no words";
        if (block.values.size() < block.announced) return "register block cut off by the packet's end";
        const std::size_t end = std::size_t{block.address} + block.announced;
        if (end > RegisterFile::size) return "register block beyond the last register";
        for (std::size_t i = 0; i < block.values.size(); ++i) {
            if (PatternMemory::holds(block.address + i) && !fitsConverters(block.values[i]))
                return "generator sample of more than 14 bits";
        }
        return {};
    }

    Breach operator()(const Pause& pause) const {
        constexpr std::array<std::uint8_t, 3> modes = {0, 1, 0x83};
        if (!oneOf(modes, pause.mode)) return "pause of an impossible mode";
        return {};
    }

    Breach operator()(const Timebase& timebase) const {
        constexpr std::array<std::uint8_t, 3> modes = {0, 4, 8};
        constexpr std::uint8_t bringUpMode = 12;
        constexpr std::uint16_t bringUpDac = 0x9000;
        const bool bringUp = timebase.mode == bringUpMode && timebase.dac == bringUpDac;
        if (!bringUp && !oneOf(modes, timebase.mode)) return "timebase word of an impossible mode";
        return {};
    }

    Breach operator()(const FanSetting& fan) const {
        if (fan.off > 1) return "fan word that is neither on nor off";
        return {};
    }

    Breach operator()(const StreamEnable& stream) const {
        const auto timing = static_cast<std::uint8_t>(stream.start - 1);
        if (stream.start != 0 && !oneOf(timings, timing))
            return "stream start with an impossible group timing";
        return {};
    }

    Breach operator()(const ContextSetup& context) const {
        if (context.enabled > 1) return "context word that is neither on nor off";
        return {};
    }

    // Bits 0 to 3: inputs streamed; 4 to 6: the focus input plus 4; 8, 9: the decimation; 12: sample path on;
    // 13: little-endian samples. Flash reads use the path with bit 8 alone, captures go without a decimation.
    Breach operator()(const Route& route) const {
        constexpr std::uint16_t possibleBits = 0x337F;
        if ((route.bits & ~possibleBits) != 0) return "route word with impossible bits";
        const unsigned focus = route.bits >> 4 & 7;
        if (focus == 0) return {};
        if (focus < 4) return "route word with an impossible focus input";
        if ((route.bits >> (focus - 4) & 1) != 0) return "route word that streams the focus input";
        return {};
    }

    Breach operator()(const InputSelect& select) const {
        constexpr std::uint32_t possibleBits = (1u << 12) - 1;
        if ((select.inputs & ~possibleBits) != 0) return "capture input selection with impossible bits";
        return {};
    }

    Breach operator()(const Capture& capture) const {
        if (capture.datagrams == 0) return "capture of no datagrams";
        return {};
    }

    Breach operator()(const LatchReadByte& latch) const {
        if (latch.position == 3) return "read byte latched at a position that isn't in use";
        return {};
    }

    Breach operator()(const SelectPage& select) const {
        if (!FlashMemory::holds(select.page))
            return "flash page " + std::to_string(select.page) + " selected";
        return {};
    }

    Breach operator()(const PatternLength& length) const {
        if (length.lastAddress >= PatternMemory::size) return "pattern beyond the generator's memory";
        return {};
    }

    Breach operator()(const SampleRequest& request) const {
        if (request.datagrams == 0) return "request of no sample datagrams";
        return {};
    }

    Breach operator()(const ExpanderWrite& write) const {
        if (write.index > 7) return "expander register that doesn't exist";
        if ((write.value & ~write.mask) != 0) return "expander write with bits outside its mask";
        return {};
    }

    Breach operator()(const BandSwitch& bands) const {
        if ((bands.value & ~bands.mask) != 0) return "input switch word with bits outside its mask";
        return {};
    }

    template <typename Other>
    Breach operator()(const Other&) const {
        return {};
    }
};

/// Filler words that the sequencer needs behind an operation before it takes the next one.
std::size_t fillerNeeded(const Action& action) {
    if (const auto* block = std::get_if<RegisterBlock>(&action)) return block->announced == 1 ? 4 : 2;
    return std::holds_alternative<Pause>(action) ? 2 : 0;
}

}  // namespace

Breach breachOf(const Operation& operation) {
    if (Breach breach = std::visit(FieldRules{}, operation.action)) return breach;
    if (operation.fillerBehind < fillerNeeded(operation.action))
        return "filler words missing behind a command";
    return {};
}

}  // namespace hxr::sim
