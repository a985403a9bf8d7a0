#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>

#include "dsp/samples.h"
#include "platform/aligned_memory.h"
#include "sweep/sweep_plan.h"

namespace hxr {

/// Samples on their way from the link to the transforms. One thread writes them block by block; others claim them by
/// whole steps, in order, 64 at a time at most. It holds three steps or more, and a step is never split at the end.
class StepRing {
  public:
    /// @throws std::bad_alloc
    explicit StepRing(const SweepPlan& plan);

    // The writer.

    /// Waits until `blocks` blocks have room.
    /// @return false once the ring is stopped
    bool waitForRoom(int blocks);
    /// Where the next block goes.
    cf32* writePlace() const { return samples_.get() + write_; }
    void advance();
    /// Hands over so many blocks that have been written.
    void publish(int blocks);

    // The claimers.

    /// A step's samples; they stay until `release`, which claimers may call in another order than they claimed in.
    struct Claim {
        std::int32_t step;  ///< counted from 0 since `restart`
        const cf32* samples;
        std::int64_t number;  ///< counted over the ring's life
    };

    /// Waits for a whole step.
    /// @return nothing once the ring is stopped
    std::optional<Claim> claim();
    void release(const Claim& claim);

    /// Begins to count steps anew.
    void restart();
    /// Ends all waits, now and later.
    void stop();

  private:
    /// Claims between the oldest that is held and the next.
    static constexpr std::int64_t mostClaims = 64;

    const std::int32_t blocksPerStep_;
    const std::int64_t stepSamples_;
    const std::int64_t capacity_;
    platform::AlignedArray<cf32> samples_;
    std::int64_t write_ = 0;  ///< the writer's own

    std::mutex mutex_;
    std::condition_variable filled_, emptied_;
    std::int64_t read_ = 0;
    std::int64_t fill_ = 0;       ///< samples published and not given back
    std::int64_t claims_ = 0;     ///< so far
    std::int64_t oldest_ = 0;     ///< the first claim whose samples aren't given back
    std::uint64_t released_ = 0;  ///< bit n: claim `oldest_` + n is released
    std::int64_t blocksReady_ = 0;
    std::int32_t claimedSteps_ = 0;
    bool stopped_ = false;
};

}  // namespace hxr
