#include "sim/sequencer.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <variant>

#include "sim/decoder.h"
#include "sim/operation_rules.h"

namespace hxr::sim {
namespace {

/// Route of the sample path that leads flash pages to the line.
constexpr std::uint16_t flashRoute = 1 << 8;
/// Register behind which the GPS chip listens: what is written there goes out to the chip.
constexpr std::uint16_t gpsPort = 32;

std::string place(const Operation& operation) { return "at word " + std::to_string(operation.position); }

}  // namespace

/// Changes the state by one operation. Answers and waits are left to be done when the state is free again.
struct Sequencer::Execution {
    UnitState& state;
    SequencerOutputs& outputs;
    const char* broken = nullptr;
    std::function<void()> afterwards{};

    void operator()(const SyncStrobe& strobe) {
        state.lastStrobe = strobe;
        ++state.strobes;
    }

    void operator()(const RegisterBlock& block) {
        if (block.address == gpsPort) {
            state.gpsMessages.push_back(block.values);
            if (state.gpsMessages.size() > UnitState::gpsMessageLimit) state.gpsMessages.pop_front();
            return;
        }
        std::uint16_t address = block.address;
        for (const std::uint32_t value : block.values) state.registers.write(address++, value);
    }

    void operator()(const Pause& pause) {
        afterwards = [this, ticks = pause.ticks] { outputs.pause(ticks); };
    }

    void operator()(const ChainDelay& chain) { state.chainDelay = chain.delay; }

    void operator()(const Timebase& timebase) {
        state.timebaseDac = timebase.dac;
        state.timebaseMode = timebase.mode;
    }

    void operator()(const FanSetting& fan) { state.fan = fan; }

    void operator()(const StreamEnable& stream) {
        state.stream = stream;
        state.streaming = stream.start != 0;
    }

    void operator()(const ContextSetup& context) { state.context = context; }
    void operator()(const Route& route) { state.route = route.bits; }

    void operator()(const StatusRequest&) {
        afterwards = [this] { outputs.sendStatus(); };
    }

    void operator()(const Capture& capture) {
        if (!state.flashReadMode) {
            afterwards = [this, count = capture.datagrams] { outputs.sendSamples(count); };
            return;
        }
        if (!state.selectedPage) {
            broken = "flash read without a page selected";
            return;
        }
        if (capture.datagrams != 1) broken = "flash read of other than one page";
        afterwards = [this, page = *state.selectedPage] { outputs.sendPage(page); };
    }

    void operator()(const InputSelect& select) { state.inputSelect = select.inputs; }
    void operator()(const LatchReadByte&) {}

    void operator()(const SelectPage& select) {
        if (!state.flashReadMode) broken = "flash page selected outside flash read mode";
        state.selectedPage = select.page;
    }

    void operator()(const FlashReadMode& mode) {
        if (state.route != flashRoute) broken = "flash read mode switched without its route";
        state.flashReadMode = mode.on;
        state.selectedPage.reset();
    }

    void operator()(const PatternLength& length) { state.patternLastAddress = length.lastAddress; }

    void operator()(const SampleRequest& request) {
        if (!state.streaming) {
            broken = "samples requested with no stream running";
            return;
        }
        afterwards = [this, count = request.datagrams] { outputs.sendSamples(count); };
    }

    void operator()(const ChipWrite& write) { state.chips.write(write); }
    void operator()(const ApplyChips&) { ++state.chipRunsApplied; }

    void operator()(const ExpanderWrite& write) {
        std::uint8_t& value = state.expander[write.index % state.expander.size()];
        value = static_cast<std::uint8_t>((value & ~write.mask) | (write.value & write.mask));
    }

    void operator()(const BandSwitch& bands) { state.bandSwitch = bands.bits; }
    void operator()(const ChannelWrite& write) { state.chips.write(write); }
    void operator()(const UnknownWord&) {}
};

void Sequencer::run(const Operation& operation) {
    if (std::holds_alternative<UnknownWord>(operation.action)) {
        rules_.noteUnknownWord(operation.word, place(operation));
        return;
    }
    if (const auto breach = breachOf(operation)) {
        rules_.noteBrokenRule(*breach + " (" + hexText(operation.word) + " " + place(operation) + ")");
    }

    Execution execution{state_, outputs_};
    {
        const std::lock_guard lock(mutex_);
        std::visit(std::ref(execution), operation.action);
    }
    if (execution.broken != nullptr) {
        rules_.noteBrokenRule(std::string(execution.broken) + " (" + hexText(operation.word) + " " +
                              place(operation) + ")");
    }
    if (execution.afterwards) execution.afterwards();
}

void Sequencer::runControlPacket(std::span<const std::uint32_t> words) {
    PacketDecoder decoder(words);
    while (const auto operation = decoder.next()) run(*operation);
}

void Sequencer::runDataPacket(std::span<const std::uint32_t> words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == 0) continue;
        run({i, words[i], 0, decodeDataSocketWord(words[i])});
    }
}

UnitState Sequencer::state() const {
    const std::lock_guard lock(mutex_);
    return state_;
}

Timebase Sequencer::timebase() const {
    const std::lock_guard lock(mutex_);
    return {state_.timebaseMode, state_.timebaseDac};
}

}  // namespace hxr::sim
