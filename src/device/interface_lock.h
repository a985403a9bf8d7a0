#pragma once

#include <mutex>

namespace hxr {

/// The lock of the whole interface: it guards the table of open units and all settings and flags of the units. Every
/// entry holds it, except while it waits for a unit or for samples.
using InterfaceLock = std::unique_lock<std::mutex>;

/// Gives the interface lock back for a scope, for traffic with a unit. Whoever opens such a scope has claimed an
/// endpoint of the unit, so that the unit isn't closed meanwhile.
class Unlocked {
  public:
    explicit Unlocked(InterfaceLock& lock) : lock_(lock) { lock_.unlock(); }
    ~Unlocked() { lock_.lock(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

  private:
    InterfaceLock& lock_;
};

}  // namespace hxr
