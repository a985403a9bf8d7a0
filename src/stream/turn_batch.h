/// From the datagrams of a batch to turns: a packet of every streaming channel of a unit, all of the same instant.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "dsp/samples.h"
#include "link/udp_device.h"
#include "stream/stream_layout.h"

namespace hxr {

/// What a batch holds. The samples lie in the endpoint's buffers and, where a turn began in the batch before, in the
/// assembler's: they stay until its next batch.
struct TurnBatch {
    /// One more than a request asks for: a turn may begin in one batch and end in the next.
    static constexpr std::size_t mostTurns = turnsPerRequest + 1;

    std::size_t turns = 0;              ///< completed
    std::optional<std::uint64_t> time;  ///< nanoseconds, of the first sample of the first turn
    std::array<bool, mostTurns>
        triggered{};  ///< the packet of the lowest channel says that it holds a trigger
    /// By the channel's place on its unit, then by turn.
    std::array<std::array<const ci16*, mostTurns>, words::channelsPerUnit> samples{};

    // What the packets warn of.
    bool adcOverflow = false;
    bool sampleLoss = false;
    bool ddrOverflow = false;
    bool gap = false;  ///< the unit itself has lost samples: more time has gone by than samples tell
};

/// Sorts the packets of one unit into turns, batch by batch. Packets are told apart by their order alone.
class TurnAssembler {
  public:
    /// @param channels  that stream on the unit, 1 to 4
    explicit TurnAssembler(std::size_t channels) : channels_(channels) {}

    /// Takes a batch in. A packet that is cut keeps its place, zeros standing for what is missing; of a batch that timed
    /// out the packets ahead of the first gap count.
    void read(ReceiveResult& received, TurnBatch& batch);

  private:
    /// A turn that isn't complete at the end of a batch.
    struct Pending {
        std::array<std::array<ci16, samplesPerPacket>, words::channelsPerUnit> samples;
    };

    void beginBatch(TurnBatch& batch) const;
    void keepPending(const TurnBatch& batch);

    const std::size_t channels_;
    std::size_t rotor_ = 0;                     ///< channel that the next packet belongs to
    std::optional<std::uint64_t> carriedTime_;  ///< of the turn under way
    bool carriedTrigger_ = false;
    std::array<Pending, 2> pending_{};  ///< in turn: one is read while the other is written
    std::size_t pendingInUse_ = 0;
};

/// Finds triggers: changes of the marker, which is the exclusive or of the lowest bits of I and Q.
class TriggerFinder {
  public:
    /// @param edge  +1 rising, -1 falling
    explicit TriggerFinder(int edge) : edge_(edge) {}

    /// Looks at the lowest channel of a batch.
    /// @return the first trigger, in samples since the batch's first turn
    std::optional<double> find(const TurnBatch& batch);

  private:
    const int edge_;
    int lastMarker_ = 0;
};

}  // namespace hxr
