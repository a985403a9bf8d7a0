#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "sim/capture_settings.h"
#include "sim/generator_settings.h"
#include "sim/operations.h"
#include "sim/rule_book.h"
#include "sim/status_record.h"
#include "sim/tuning.h"
#include "sim/unit_state.h"
#include "sim/vco_tables.h"

namespace hxr::sim {

/// What the words of a packet make the unit do towards the outside.
class SequencerOutputs {
  public:
    virtual ~SequencerOutputs() = default;
    virtual void sendStatus() = 0;
    virtual void sendPage(std::uint16_t page) = 0;
    virtual void sendSamples(std::uint32_t datagrams) = 0;
    virtual void startStream() = 0;
    virtual void stopStream() = 0;
    virtual void sendStream(std::uint32_t datagrams) = 0;
    virtual void pause(std::uint16_t ticks) = 0;
    /// What the unit's VCOs settle on when they calibrate themselves. Called amid a word, so it must not wait.
    virtual const VcoTables& vcoTables() = 0;
};

/// Runs command words in order on the unit's registers and modes, and notes what breaks the rules. Words run
/// on one thread; the state may be copied from any.
class Sequencer {
  public:
    /// @param address  the unit's IPv4 address, which its sample packets bear
    Sequencer(RuleBook& rules, SequencerOutputs& outputs, std::uint32_t address)
        : rules_(rules), outputs_(outputs), address_(address) {}

    void runControlPacket(std::span<const std::uint32_t> words);
    void runDataPacket(std::span<const std::uint32_t> words);

    UnitState state() const;
    /// How the channel is tuned at the moment, without a copy of the whole state.
    ChannelTuning tuning(std::size_t channel, std::optional<double> groupHz) const;

    /// What the next capture takes; nothing if no input is selected.
    std::optional<CaptureSettings> captureSettings(const Oscillator& oscillator) const;

    /// What the generator plays; nothing while it is off.
    std::optional<GeneratorSettings> generatorSettings(const Oscillator& oscillator) const;
    /// The words of its pattern.
    std::vector<std::uint32_t> pattern() const;

    /// Lets the GPS chip and the timebase go on until now, and gives what they and the synthesizers have to
    /// report.
    UnitReport report(bool goodFix, const Oscillator& oscillator, std::chrono::sys_seconds now);

  private:
    struct Execution;

    void run(const Operation& operation);

    RuleBook& rules_;
    SequencerOutputs& outputs_;
    const std::uint32_t address_;
    mutable std::mutex mutex_;
    UnitState state_;
};

}  // namespace hxr::sim
