#include "sim/sequencer.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "sim/decoder.h"
#include "sim/operation_rules.h"
#include "sim/stream_destination.h"

namespace hxr::sim {
namespace {

/// Route of the sample path that leads flash pages to the line.
constexpr std::uint16_t flashRoute = 1 << 8;
/// Register behind which the GPS chip listens: what is written there goes out to the chip.
constexpr std::uint16_t gpsPort = 32;
/// Register of the unit's clock, in seconds of UTC since 1970; the second begins with that of GPS.
constexpr std::uint16_t clockRegister = 7;
/// Timebase mode in which the unit steers its DAC by GPS.
constexpr std::uint8_t gpsMode = 8;
/// Chip that leads the generator to its output; its words have an address byte and 16 bits.
constexpr std::uint8_t generatorChip = 0x47;

std::string place(const Operation& operation) { return "at word " + std::to_string(operation.position); }

}  // namespace

/// Changes the state by one operation. Answers and waits are left to be done when the state is free again.
struct Sequencer::Execution {
    UnitState& state;
    SequencerOutputs& outputs;
    const std::uint32_t address;
    std::vector<std::string> broken{};
    std::function<void()> afterwards{};

    void operator()(const SyncStrobe& strobe) {
        state.lastStrobe = strobe;
        ++state.strobes;
    }

    void operator()(const RegisterBlock& block) {
        if (block.address == gpsPort) {
            state.gpsMessages.push_back(block.values);
            if (state.gpsMessages.size() > UnitState::gpsMessageLimit) state.gpsMessages.pop_front();
            for (std::string& line : state.gps.take(block.values)) broken.push_back(std::move(line));
            return;
        }
        std::uint16_t next = block.address;
        for (const std::uint32_t value : block.values) {
            if (next == clockRegister) setClock(value);
            if (PatternMemory::holds(next)) ++state.patternChanges;
            state.registers.write(next++, value);
        }
        checkDestinations(block);
    }

    void setClock(std::uint32_t seconds) {
        const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
        state.clockAhead = std::chrono::seconds(seconds) - now.time_since_epoch();
    }

    void checkDestinations(const RegisterBlock& block) {
        const std::size_t end = std::size_t{block.address} + block.values.size();
        for (std::size_t slot = 0; slot < StreamDestination::slots; ++slot) {
            const std::size_t first =
                StreamDestination::firstRegister + slot * StreamDestination::registersEach;
            if (block.address >= first + StreamDestination::registersEach || end <= first) continue;
            const auto destination = streamDestination(state.registers, slot);
            if (destination && !destination->checksumsFit(address))
                broken.push_back("stream destination " + std::to_string(slot) + " with a wrong checksum");
        }
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
        state.streaming = false;
        if (stream.start == 0) {
            afterwards = [this] { outputs.stopStream(); };
            return;
        }
        constexpr std::uint8_t streamConfigured = 6;
        if (!state.lastStrobe || state.lastStrobe->mask != streamConfigured) {
            note("stream started before its configuration was closed");
            return;
        }
        state.streaming = true;
        afterwards = [this] { outputs.startStream(); };
    }

    void operator()(const ContextSetup& context) { state.context = context; }
    void operator()(const Route& route) { state.route = route.bits; }

    void operator()(const StatusRequest&) {
        afterwards = [this] { outputs.sendStatus(); };
    }

    void operator()(const Capture& capture) {
        if (!state.flashReadMode) {
            checkCapturedInput();
            afterwards = [this, count = capture.datagrams] { outputs.sendSamples(count); };
            return;
        }
        if (!state.selectedPage) {
            note("flash read without a page selected");
            return;
        }
        if (capture.datagrams != 1) note("flash read of other than one page");
        afterwards = [this, page = *state.selectedPage] { outputs.sendPage(page); };
    }

    /// A route names the one input that captures take by its number plus 4.
    void checkCapturedInput() {
        const unsigned named = state.route >> 4 & 7;
        unsigned taken = 0, inputs = 0;
        for (unsigned channel = 0; channel < channelCount; ++channel) {
            const CaptureInput input = captureInput(state.inputSelect, channel);
            if (!input.low && !input.high && !input.fullBand) continue;
            taken = channel + 4;
            ++inputs;
        }
        if (inputs != 1 || taken != named) note("capture of another input than its route leads");
    }

    void operator()(const InputSelect& select) { state.inputSelect = select.inputs; }

    /// Positions 4 to 7 are of another line, with the same bytes of the status.
    void operator()(const LatchReadByte& latch) {
        if (latch.position == 3) return;
        const auto byte = state.synthesizers.readByte(state.expander, outputs.vcoTables());
        if (!byte) note("read byte latched from no chip");
        const unsigned shift = 8 * (latch.position & 3u);
        constexpr std::uint32_t byteMask = 0xFF;
        state.readback = (state.readback & ~(byteMask << shift)) | std::uint32_t{byte.value_or(0)} << shift;
    }

    void operator()(const SelectPage& select) {
        if (!state.flashReadMode) note("flash page selected outside flash read mode");
        state.selectedPage = select.page;
    }

    void operator()(const FlashReadMode& mode) {
        if (state.route != flashRoute) note("flash read mode switched without its route");
        state.flashReadMode = mode.on;
        state.selectedPage.reset();
    }

    void operator()(const PatternLength& length) {
        state.patternLastAddress = length.lastAddress;
        ++state.patternChanges;
    }

    void operator()(const SampleRequest& request) {
        if (!state.streaming) {
            note("samples requested with no stream running");
            return;
        }
        afterwards = [this, count = request.datagrams] { outputs.sendStream(count); };
    }

    void operator()(const ChipWrite& write) {
        state.chips.write(write);
        note(state.synthesizers.write(write));
        if (write.chip == generatorChip)
            state.generatorOutput = static_cast<std::uint16_t>((write.address & 255) << 8 | write.value);
    }

    void operator()(const ApplyChips&) {
        ++state.chipRunsApplied;
        note(state.synthesizers.apply());
    }

    void operator()(const ExpanderWrite& write) {
        std::uint8_t& value = state.expander[write.index % state.expander.size()];
        value = static_cast<std::uint8_t>((value & ~write.mask) | (write.value & write.mask));
    }

    void operator()(const BandSwitch& bands) {
        state.lowBandInputs =
            static_cast<std::uint8_t>((state.lowBandInputs & ~bands.mask) | (bands.value & bands.mask));
    }

    void operator()(const ChannelWrite& write) {
        state.chips.write(write);
        note(state.synthesizers.write(write));
    }

    void operator()(const UnknownWord&) {}

    void note(const char* wrong) {
        if (wrong != nullptr) broken.emplace_back(wrong);
    }
};

void Sequencer::run(const Operation& operation) {
    if (std::holds_alternative<UnknownWord>(operation.action)) {
        rules_.noteUnknownWord(operation.word, place(operation));
        return;
    }
    if (const auto breach = breachOf(operation)) {
        rules_.noteBrokenRule(*breach + " (" + hexText(operation.word) + " " + place(operation) + ")");
    }

    Execution execution{state_, outputs_, address_};
    {
        const std::lock_guard lock(mutex_);
        std::visit(std::ref(execution), operation.action);
    }
    for (const std::string& line : execution.broken) {
        rules_.noteBrokenRule(line + " (" + hexText(operation.word) + " " + place(operation) + ")");
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

ChannelTuning Sequencer::tuning(std::size_t channel, std::optional<double> groupHz) const {
    const std::lock_guard lock(mutex_);
    return channelTuning(state_, channel, groupHz);
}

std::optional<CaptureSettings> Sequencer::captureSettings(const Oscillator& oscillator) const {
    const std::lock_guard lock(mutex_);
    return sim::captureSettings(state_, oscillator);
}

std::optional<GeneratorSettings> Sequencer::generatorSettings(const Oscillator& oscillator) const {
    const std::lock_guard lock(mutex_);
    return sim::generatorSettings(state_, oscillator);
}

std::vector<std::uint32_t> Sequencer::pattern() const {
    const std::lock_guard lock(mutex_);
    return loadedPattern(state_);
}

UnitReport Sequencer::report(bool goodFix, const Oscillator& oscillator, std::chrono::sys_seconds now) {
    const std::lock_guard lock(mutex_);
    const bool disciplines = state_.timebaseMode == gpsMode && goodFix;
    if (disciplines) state_.timebaseDac = oscillator.steered(state_.timebaseDac);
    const LockFlags locks = lockFlags(state_);
    return {.timebaseDac = state_.timebaseDac,
            .disciplines = disciplines,
            .firstLockFlags = locks.first,
            .secondLockFlags = locks.second,
            .readback = std::exchange(state_.readback, 0),
            .solutionTime = state_.gps.solutionTime(now)};
}

}  // namespace hxr::sim
