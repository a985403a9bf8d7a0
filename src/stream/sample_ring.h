#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include "dsp/samples.h"
#include "platform/aligned_memory.h"
#include "stream/stream_counters.h"
#include "stream/stream_layout.h"

namespace hxr {

/// How an application wants its samples.
struct SampleFormat {
    bool floats = false;        ///< pairs of floats with full scale 1.0, not of 16-bit integers
    PerChannel<float> scale{};  ///< for floats, by streaming channel: a factor
};

/// The samples of all streaming channels of a group on their way from the units to the application: 2^24 of each.
///
/// A position is one instant on all channels, counted from the stream's start. What one channel has lost, on its way here, to
/// a purge or because nobody fetched it in time, all have lost. Each unit has a thread that pushes, and one thread pulls.
class SampleRing {
  public:
    static constexpr std::int64_t capacity = std::int64_t{1} << 24;

    /// @param floatSamples  samples are pairs of floats with full scale 1.0; pairs of 16-bit integers if not
    /// @throws std::bad_alloc
    SampleRing(const StreamLayout& layout, bool floatSamples, double nsPerSample);

    /// Samples to be stored: blocks of one length, one for each channel of a unit and frame.
    struct Blocks {
        std::int64_t position =
            0;  ///< of the first sample; a multiple of the blocks' length, never going back
        std::size_t frames = 0;
        std::size_t samplesPerFrame = 0;
        std::array<std::span<const void* const>, words::channelsPerUnit>
            of{};                         ///< by channel of the unit, then frame
        std::uint64_t time = 0;           ///< nanoseconds, of the first sample
        std::optional<double> trigger{};  ///< samples from the first
    };

    /// Stores samples of a unit. Positions that it leaves out are skipped on all channels when they are read. If the
    /// application is too far behind, all stored samples are discarded, on all channels. Times and triggers count from
    /// the unit that sets the clock.
    void push(std::size_t unit, const Blocks& blocks);

    /// Ends all waits: no more samples will come.
    void end();

    /// Where pulled samples go.
    struct Destination {
        std::span<void* const> channels;  ///< a buffer for each streaming channel
        std::int64_t offset = 0;          ///< samples that the buffers hold already
    };
    struct Pulled {
        std::int64_t samples = 0;
        std::uint64_t time = 0;    ///< nanoseconds, of the first
        std::size_t triggers = 0;  ///< written
    };

    /// Takes samples out, all up to the next gap but at most `wanted`, and triggers as far as there is room for them.
    /// @param triggers  receives their positions from the first sample pulled
    Pulled pull(std::int64_t wanted, const SampleFormat& format, const Destination& destination,
                std::span<double> triggers);

    /// Waits for samples on all channels.
    /// @return false if there are none and no more will come
    bool waitForSamples();

    /// Samples that all channels have.
    std::int64_t available() const;

    /// Discards all stored samples.
    void purge();

    /// Whether samples were lost since the last time this was asked, because they weren't pulled in time.
    bool takeOverflow();

    /// What the ring has counted since the stream's start.
    RingCounts counts() const;

  private:
    using Lock = std::unique_lock<std::mutex>;

    /// Positions that a unit has left out.
    struct Gap {
        std::int64_t begin, end;
    };

    std::int64_t endOfStored() const;
    std::int64_t stored(std::int64_t from, std::int64_t to) const;
    std::int64_t placeOf(std::size_t unit, std::int64_t position);
    void addGap(std::int64_t begin, std::int64_t end);
    void skipGaps();
    void makeRoom(std::int64_t end);
    void skipToNewest();
    void moveReadPosition(std::int64_t position);
    void setClock(std::uint64_t batchTime, std::int64_t batchStart);
    void store(std::size_t channel, std::int64_t position, const void* block, std::size_t samples);
    void copyOut(std::size_t channel, std::int64_t position, std::int64_t samples, const SampleFormat& format,
                 void* out) const;
    std::size_t takeTriggers(std::int64_t end, std::span<double> triggers);

    const StreamLayout layout_;
    const bool floatSamples_;
    const double nsPerSample_;
    std::array<platform::AlignedArray<std::byte>, mostChannels> buffers_;

    mutable std::mutex mutex_;  ///< guards all below; samples are copied without it
    std::condition_variable pushed_, pulled_;
    std::array<std::int64_t, mostUnits> written_{};    ///< position behind the last sample stored, by unit
    std::array<std::int64_t, mostUnits> clockStep_{};  ///< taken off the positions of each unit
    std::vector<Gap> gaps_;                            ///< apart from each other, oldest first
    std::int64_t readPosition_ = 0;
    bool pulling_ = false;          ///< samples are being copied from `readPosition_` on
    std::uint64_t timestamp_ = 0;   ///< nanoseconds, of the sample at `readPosition_`
    std::vector<double> triggers_;  ///< positions, oldest first
    bool overflowed_ = false;
    RingCounts counts_;
    bool ended_ = false;
};

}  // namespace hxr
