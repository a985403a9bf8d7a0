#pragma once

#include <cstdint>
#include <mutex>
#include <span>

#include "sim/operations.h"
#include "sim/rule_book.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// What the words of a packet make the unit do towards the outside.
class SequencerOutputs {
  public:
    virtual ~SequencerOutputs() = default;
    virtual void sendStatus() = 0;
    virtual void sendPage(std::uint16_t page) = 0;
    virtual void sendSamples(std::uint32_t datagrams) = 0;
    virtual void pause(std::uint16_t ticks) = 0;
};

/// Runs command words in order on the unit's registers and modes, and notes what breaks the rules. Words run
/// on one thread; the state may be copied from any.
class Sequencer {
  public:
    Sequencer(RuleBook& rules, SequencerOutputs& outputs) : rules_(rules), outputs_(outputs) {}

    void runControlPacket(std::span<const std::uint32_t> words);
    void runDataPacket(std::span<const std::uint32_t> words);

    UnitState state() const;
    Timebase timebase() const;

  private:
    struct Execution;

    void run(const Operation& operation);

    RuleBook& rules_;
    SequencerOutputs& outputs_;
    mutable std::mutex mutex_;
    UnitState state_;
};

}  // namespace hxr::sim
