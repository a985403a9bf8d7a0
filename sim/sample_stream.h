#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

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
    using Payload = std::array<std::uint8_t, dataPayloadBytes>;
    /// Fills in a channel's samples from one on, counted from the stream's start, at the stream's rate.
    /// The marker, the exclusive or of the lowest bits of I and Q, is low in them.
    /// @returns further bits for the trailer
    using Fill =
        std::function<std::uint32_t(std::size_t channel, std::uint64_t firstSample, Payload& payload)>;

    /// @param state  of the unit, with everything that was configured
    SampleStream(const UnitState& state, Time start, Fill fill);

    /// The next datagram, sample packet or context packet.
    std::vector<std::uint8_t> next(const std::vector<MarkerEdge>& edges);

    bool hasChannels() const { return !channels_.empty(); }

    /// What a clock shows now that was right at the start of the stream and goes `pace` times as fast.
    Time clockAt(Time now, double pace) const;

    /// When the unit has taken the samples of the next datagram.
    Time due() const { return timeOf((turn_ + 1) * samplesPerPacket); }

    /// Leaves turns out that the unit couldn't keep, and warns of it. Whole turns only.
    void loseTurns(std::uint64_t count);
    bool betweenTurns() const { return place_ == 0 && contextsLeft_ == 0; }

    /// Turns whose samples have been taken by now and not sent.
    std::uint64_t waiting(Time now) const;

    static constexpr std::uint64_t samplesPerPacket = 2048;

  private:
    Time timeOf(std::uint64_t sample) const;
    std::vector<std::uint8_t> contextPacket(std::size_t channel) const;
    std::vector<std::uint8_t> samplePacket(std::size_t channel, const std::vector<MarkerEdge>& edges);

    std::vector<std::size_t> channels_;
    std::uint64_t decimation_;
    std::array<std::uint32_t, 4> streamId_{};
    std::array<std::vector<std::uint32_t>, 4> contextFields_;
    std::uint64_t contextInterval_ = 0;
    Time start_;
    Fill fill_;
    std::uint64_t turn_ = 0;
    std::size_t place_ = 0;         ///< in the turn, of the next sample packet
    std::size_t contextsLeft_ = 0;  ///< context packets that go before it
    std::array<std::uint8_t, 4> counts_{};
    std::uint32_t losses_ = 0;  ///< to be warned of in the next turn
};

/// A number of each sample: its position in the stream, and the channel.
struct SampleCounter {
    /// Position modulo 2^28, the channel 0 to 3, the marker.
    static void put(std::size_t channel, std::uint64_t firstSample, SampleStream::Payload& payload);
};

}  // namespace hxr::sim
