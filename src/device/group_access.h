/// Exclusive use of all units of a group. All of these are made and destroyed under the interface lock; none waits.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>

#include "device/hxr_device.h"

namespace hxr {

struct UnitControl {
    HXRDevice* device = nullptr;
    ControlClaim control;
};

/// The control endpoints of all units of a group, for one entry.
class ControlOfGroup {
  public:
    explicit ControlOfGroup(HXRDevice& master);

    /// False if somebody owns one of the endpoints; nothing is claimed then.
    explicit operator bool() const { return size_ > 0; }

    /// The units in order, the master first.
    std::span<const UnitControl> units() const { return std::span(units_).first(size_); }

  private:
    std::array<UnitControl, mostUnits> units_;
    std::size_t size_ = 0;
};

struct UnitAccess {
    HXRDevice* device = nullptr;
    ControlClaim control;
    DataClaim data;
};

/// Both endpoints of all units of a group, for initiate and abort, with the engines that were using them. While it lives,
/// the group is `changing`.
class GroupTakeover {
  public:
    /// Claims every endpoint that nobody owns and takes over those that the group's own engines own.
    explicit GroupTakeover(HXRDevice& master);
    ~GroupTakeover();
    GroupTakeover(const GroupTakeover&) = delete;
    GroupTakeover& operator=(const GroupTakeover&) = delete;

    /// False if somebody else owns one of the endpoints; nothing has changed then.
    explicit operator bool() const { return size_ > 0; }

    /// The units in order, the master first.
    std::span<UnitAccess> units() { return std::span(units_).first(size_); }
    std::size_t size() const { return size_; }
    UnitAccess& operator[](std::size_t position) { return units_[position]; }

    /// Stops the engines. To be done before any other use of the endpoints, with the interface lock given back.
    void stopEngines();

  private:
    bool claimFreeEndpoints();

    HXRDevice& master_;
    std::array<UnitAccess, mostUnits> units_;
    std::size_t size_ = 0;
    std::shared_ptr<SweepEngine> sweepEngine_;
    std::shared_ptr<StreamEngine> streamEngine_;
};

}  // namespace hxr
