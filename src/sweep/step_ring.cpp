#include "sweep/step_ring.h"

#include <algorithm>

namespace hxr {
namespace {

/// Samples that the ring holds: about five million, three steps at least, or a whole sweep if it isn't larger than
/// fifty million.
std::int64_t capacityFor(const SweepPlan& plan) {
    constexpr std::int64_t usual = 5'000'000, most = 50'000'000, fewestSteps = 3;
    const std::int64_t step = plan.samplesPerStep();
    return std::max({usual / step, fewestSteps, std::min(std::int64_t{plan.stepCount}, most / step)}) * step;
}

}  // namespace

StepRing::StepRing(const SweepPlan& plan)
    : blocksPerStep_(plan.blocksPerStep),
      stepSamples_(plan.samplesPerStep()),
      capacity_(capacityFor(plan)),
      samples_(platform::makeAlignedArray<cf32>(static_cast<std::size_t>(capacity_))) {}

bool StepRing::waitForRoom(int blocks) {
    std::unique_lock lock(mutex_);
    emptied_.wait(lock,
                  [&] { return stopped_ || capacity_ - fill_ >= std::int64_t{blocks} * samplesPerBlock; });
    return !stopped_;
}

void StepRing::advance() {
    write_ += samplesPerBlock;
    if (write_ == capacity_) write_ = 0;
}

void StepRing::publish(int blocks) {
    const std::lock_guard lock(mutex_);
    fill_ += std::int64_t{blocks} * samplesPerBlock;
    blocksReady_ += blocks;
    if (blocksReady_ >= blocksPerStep_) filled_.notify_all();
}

std::optional<StepRing::Claim> StepRing::claim() {
    std::unique_lock lock(mutex_);
    // Who holds an old step keeps the map of released ones from moving on.
    filled_.wait(
        lock, [&] { return stopped_ || (blocksReady_ >= blocksPerStep_ && claims_ - oldest_ < mostClaims); });
    if (stopped_) return std::nullopt;
    const Claim claim{claimedSteps_++, samples_.get() + read_, claims_++};
    blocksReady_ -= blocksPerStep_;
    read_ += stepSamples_;
    if (read_ == capacity_) read_ = 0;
    return claim;
}

void StepRing::release(const Claim& claim) {
    const std::lock_guard lock(mutex_);
    // Room is made from the oldest step on: one that is still in use keeps those behind it.
    released_ |= std::uint64_t{1} << (claim.number - oldest_);
    for (; (released_ & 1) != 0; released_ >>= 1, ++oldest_) fill_ -= stepSamples_;
    emptied_.notify_one();
    filled_.notify_all();
}

void StepRing::restart() {
    const std::lock_guard lock(mutex_);
    claimedSteps_ = 0;
}

void StepRing::stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    filled_.notify_all();
    emptied_.notify_all();
}

}  // namespace hxr
