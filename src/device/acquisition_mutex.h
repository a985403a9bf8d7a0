#pragma once

#include <atomic>

namespace hxr {

/// Says who owns a unit's control endpoint: a sweep from its start to its finish, which may be on two
/// threads, or the reader of one status record. It is only ever tried, never waited for.
class AcquisitionMutex {
  public:
    bool try_lock() { return !held_.test_and_set(std::memory_order_acquire); }
    void unlock() { held_.clear(std::memory_order_release); }

  private:
    std::atomic_flag held_;
};

}  // namespace hxr
