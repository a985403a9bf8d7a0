#pragma once

#include <chrono>
#include <optional>

namespace hxr::sim {

/// Ends a thread's wait from another thread, once and for good.
class WakeEvent {
  public:
    WakeEvent();
    ~WakeEvent();
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    void raise();
    int descriptor() const { return descriptor_; }
    /// Sleeps; true if it was cut short, or the event was up already.
    bool sleep(std::chrono::nanoseconds time) const;

  private:
    int descriptor_;
};

}  // namespace hxr::sim
