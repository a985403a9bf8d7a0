/// From the datagrams of a batch to frames: a packet of every streaming channel of a unit, all of the same instant.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "dsp/samples.h"
#include "link/udp_device.h"
#include "stream/stream_layout.h"

namespace hxr {

/// What a batch holds. The samples lie in the endpoint's buffers and, where a frame began in the batch before, in the
/// assembler's: they stay until its next batch.
struct FrameBatch {
    /// One more than a request asks for: a frame may begin in one batch and end in the next.
    static constexpr std::size_t mostFrames = framesPerRequest + 1;

    std::size_t frames = 0;  ///< completed
    std::array<std::int64_t, mostFrames>
        number{};  ///< of each, counted by its time stamp from the stream's first
    std::array<std::uint64_t, mostFrames> time{};  ///< nanoseconds since 1970, of each one's first sample
    std::array<bool, mostFrames>
        triggered{};  ///< the packet of the lowest channel says that it holds a trigger
    /// By the channel's place on its unit, then by frame.
    std::array<std::array<const ci16*, mostFrames>, words::channelsPerUnit> samples{};

    // What the packets warn of.
    bool adcOverflow = false;
    bool sampleLoss = false;  ///< the unit says so, a packet is cut, or time stamps show a gap
    bool ddrOverflow = false;

    // What the batch adds to the stream's statistics.
    std::uint64_t datagrams = 0, contextPackets = 0, duplicates = 0, outOfOrder = 0, framesLost = 0,
                  adcOverflows = 0;
    std::int64_t lastLoss = -1;      ///< number of the first frame of the last gap, -1 for none
    std::uint64_t lastLossTime = 0;  ///< nanoseconds since 1970, of its first sample
};

/// Sorts the packets of one unit into frames, batch by batch. A unit sends a packet of each channel, lowest channel first,
/// all with one time stamp, then the next frame.
///
/// Frames are numbered by their time stamps, so that a gap shows: the numbers jump. A packet that comes twice is dropped,
/// by its time stamp and stream identifier, and so is one that is older than the frame under way. A frame that
/// lacks a packet when the next one begins is lost.
class FrameAssembler {
  public:
    /// @param identifiers  stream identifiers of the channels that stream on the unit, 1 to 4, in order. A packet with
    ///                     another identifier takes the place that is due.
    /// @param decimation   of the unit: 1, 2 or 4
    FrameAssembler(std::span<const std::uint32_t> identifiers, int decimation);

    /// Takes a batch in. A packet that is cut keeps its place, zeros standing for what is missing; of a batch that timed
    /// out the packets ahead of the first gap count.
    void read(ReceiveResult& received, FrameBatch& batch);

  private:
    class Packet;

    /// Packets of a frame that isn't complete at the end of a batch.
    struct Pending {
        std::array<std::array<ci16, samplesPerPacket>, words::channelsPerUnit> samples;
    };

    void beginBatch(FrameBatch& batch) const;
    void keepPending(const FrameBatch& batch);
    bool findFrame(const Packet& packet, FrameBatch& batch);
    void beginFrame(std::int64_t number, const Packet& packet, FrameBatch& batch);
    void noteGap(std::int64_t first, std::int64_t next, FrameBatch& batch) const;
    std::optional<std::size_t> placeOf(const Packet& packet, FrameBatch& batch) const;

    const std::size_t channels_;
    const std::int64_t frameTicks_;  ///< picoseconds from one frame to the next
    std::array<std::uint32_t, words::channelsPerUnit> identifiers_{};

    bool started_ = false;
    unsigned filled_ = 0;  ///< bit i: the packet of place i of the frame under way is here; 0 between frames
    std::int64_t number_ = 0;  ///< of the last frame that was begun
    std::uint64_t ticks_ = 0;  ///< its time stamp: picoseconds since 1970 modulo 2^64
    std::uint64_t time_ = 0;   ///< the same in nanoseconds, in full
    bool triggered_ = false;
    std::array<Pending, 2> pending_{};  ///< in turn: one is read while the other is written
    std::size_t pendingInUse_ = 0;
};

/// Finds triggers: changes of the marker, which is the exclusive or of the lowest bits of I and Q.
class TriggerFinder {
  public:
    /// @param edge  +1 rising, -1 falling
    explicit TriggerFinder(int edge) : edge_(edge) {}

    /// Where a trigger is: in which frame of a batch, and at which of its samples.
    struct Place {
        std::size_t frame;
        int sample;

        bool operator==(const Place&) const = default;
    };

    /// Looks at the lowest channel of a batch.
    /// @return the first trigger
    std::optional<Place> find(const FrameBatch& batch);

  private:
    const int edge_;
    int lastMarker_ = 0;
};

}  // namespace hxr
