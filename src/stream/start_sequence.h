#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace hxr {

/// Lines the units of a group up: all slaves are configured before the master, and started before it.
///
/// Each unit's thread goes through `beforeConfiguring`, `beforeStarting` and `afterStarting`, in this order.
class StartSequence {
  public:
    explicit StartSequence(std::size_t unitCount) : slaves_(unitCount - 1) {}

    // Each waits, and is false if the sequence was given up.

    bool beforeConfiguring(bool master) {
        std::unique_lock lock(mutex_);
        return await(lock, [&] { return !master || configured_ == slaves_; });
    }
    bool beforeStarting(bool master) {
        std::unique_lock lock(mutex_);
        if (master) {
            mayStart_ = true;
        } else {
            ++configured_;
        }
        progress_.notify_all();
        return await(lock, [&] { return master ? started_ == slaves_ : mayStart_; });
    }
    void afterStarting(bool master) {
        const std::lock_guard lock(mutex_);
        if (master) {
            allStarted_ = true;
        } else {
            ++started_;
        }
        progress_.notify_all();
    }

    void awaitAll() {
        std::unique_lock lock(mutex_);
        await(lock, [&] { return allStarted_; });
    }

    /// Ends all waits, now and later: a thread of a unit could not be had.
    void giveUp() {
        const std::lock_guard lock(mutex_);
        givenUp_ = true;
        progress_.notify_all();
    }

  private:
    template <typename Reached>
    bool await(std::unique_lock<std::mutex>& lock, Reached reached) {
        progress_.wait(lock, [&] { return givenUp_ || reached(); });
        return !givenUp_;
    }

    const std::size_t slaves_;
    std::mutex mutex_;
    std::condition_variable progress_;
    std::size_t configured_ = 0, started_ = 0;  ///< slaves
    bool mayStart_ = false, allStarted_ = false, givenUp_ = false;
};

}  // namespace hxr
