#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

#include "platform/clock.h"

namespace hxr::test {

/// A clock that a test moves by hand: pauses pass at once and are noted, time-outs may last a small part of
/// what they say.
class TestClock final : public platform::Clock {
  public:
    /// @param shortening  a time-out lasts this part of its nominal length
    explicit TestClock(int shortening = 1) : shortening_(shortening) { timeouts_.reserve(10'000); }

    void shortenTimeouts(int shortening) { shortening_ = shortening; }

    std::uint64_t monotonicMs() const override { return monotonicMs_; }
    std::int64_t utcSeconds() const override { return utcSeconds_; }

    void sleep(std::chrono::milliseconds pause) override {
        monotonicMs_ += static_cast<std::uint64_t>(pause.count());
        const std::lock_guard lock(mutex_);
        sleeps_.push_back(pause);
    }

    std::chrono::milliseconds timeout(std::chrono::milliseconds nominal) const override {
        const std::lock_guard lock(mutex_);
        timeouts_.push_back(nominal);
        return std::max(nominal / shortening_.load(), std::chrono::milliseconds(1));
    }

    void advance(std::chrono::milliseconds time) { monotonicMs_ += static_cast<std::uint64_t>(time.count()); }
    void setUtcSeconds(std::int64_t seconds) { utcSeconds_ = seconds; }

    /// All pauses so far.
    std::vector<std::chrono::milliseconds> sleeps() const {
        const std::lock_guard lock(mutex_);
        return sleeps_;
    }

    std::vector<std::chrono::milliseconds> timeouts() const {
        const std::lock_guard lock(mutex_);
        return timeouts_;
    }

  private:
    std::atomic<int> shortening_;
    std::atomic<std::uint64_t> monotonicMs_ = 1'000'000;
    std::atomic<std::int64_t> utcSeconds_ = 1'790'000'000;
    mutable std::mutex mutex_;
    std::vector<std::chrono::milliseconds> sleeps_;
    mutable std::vector<std::chrono::milliseconds> timeouts_;
};

}  // namespace hxr::test
