#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "sim/context_packet.h"
#include "sim/data_datagram.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// An edge of the marker line: from this sample of the stream on it stands high or low.
struct MarkerEdge {
    std::uint64_t sample;
    bool high;
};

/// What the trailer of a packet warns of, beside what the unit finds by itself. Bits as they go out.
struct StreamWarning {
    static constexpr std::uint32_t overRange = 1u << 25 | 1u << 13;
    static constexpr std::uint32_t sampleLoss = 1u << 24 | 1u << 12;
    static constexpr std::uint32_t bufferOverflow = 1u << 21 | 1u << 9;
    static constexpr std::uint32_t trigger = 1u << 20 | 1u << 8;
};

/// The packets of a running stream: one of each enabled channel, lowest first, then again. All channels of a turn
/// are of the same instant.
///
/// After every `interval` turns a context packet of each channel goes along, where the unit was told so.
class SampleStream {
  public:
    using Time = std::chrono::system_clock::time_point;
    static constexpr std::uint64_t samplesPerPacket = 2048;
    using Payload = std::span<std::uint8_t, dataPayloadBytes>;
    /// Fills in a channel's samples from one on, counted from the stream's start, at the stream's rate, the marker
    /// low in all of them.
    /// @returns further bits for the trailer
    using Fill =
        std::function<std::uint32_t(std::size_t channel, std::uint64_t firstSample, Payload payload)>;

    /// @param state  of the unit, with everything that was configured
    SampleStream(const UnitState& state, const ContextReport& report, Time start, Fill fill);

    /// Writes the next datagram, sample packet or context packet.
    ///
    /// @param datagram  room for a data datagram
    /// @returns its length
    std::size_t next(const std::vector<MarkerEdge>& edges, std::span<std::uint8_t> datagram);

    /// The input whose packet is next.
    std::size_t nextChannel() const;
    /// The inputs that are streamed, lowest first.
    std::span<const std::size_t> channels() const { return channels_; }

    Time startTime() const { return start_; }
    /// When the unit has taken the samples of so many turns, beginning with the present one.
    Time due(std::uint64_t turns = 1) const { return timeOf((turn_ + turns) * samplesPerPacket); }
    /// How long a turn takes.
    std::chrono::nanoseconds turnTime() const;

    /// Leaves turns out that the unit couldn't keep, and warns of it. Whole turns only.
    void loseTurns(std::uint64_t count);
    bool betweenTurns() const { return place_ == 0 && contextsLeft_ == 0; }

    /// Turns whose samples have been taken by now and not sent.
    std::uint64_t waiting(Time now) const;

  private:
    Time timeOf(std::uint64_t sample) const;
    void putContext(std::size_t channel, std::span<std::uint8_t> datagram);
    void putSamplePacket(std::size_t channel, const std::vector<MarkerEdge>& edges,
                         std::span<std::uint8_t> datagram);

    std::vector<std::size_t> channels_;
    std::uint64_t decimation_;
    std::array<std::uint32_t, 4> streamId_{};
    std::array<std::vector<std::uint32_t>, 4> contextFields_;
    ContextReport report_;
    bool mostSignificantFirst_;  ///< in the samples
    std::uint64_t contextInterval_ = 0;
    Time start_;
    std::chrono::seconds clockAhead_;  ///< of the unit's clock
    Fill fill_;
    std::uint64_t turn_ = 0;
    std::size_t place_ = 0;         ///< in the turn, of the next sample packet
    std::size_t contextsLeft_ = 0;  ///< context packets that go before it
    std::array<std::uint8_t, 4> counts_{}, contextCounts_{};
    std::uint32_t losses_ = 0;  ///< to be warned of in the next turn
};

/// Puts the marker line, the exclusive or of the lowest bits of I and Q, low in all samples.
void lowerMarker(std::span<std::uint8_t> payload);

/// A number of each sample: its position in the stream, and the channel.
struct SampleCounter {
    /// Position modulo 2^28, the channel 0 to 3, the marker.
    static void put(std::size_t channel, std::uint64_t firstSample, SampleStream::Payload payload);
};

}  // namespace hxr::sim
