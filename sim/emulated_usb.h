#pragma once

#include <cstddef>
#include <memory>

#include "sim/fx3_unit.h"

namespace hxr::sim {

/// A USB of this machine's own in place of the system's, for this process and those that it starts. Its programs have to be
/// run by `umockdev-wrapper`.
class EmulatedUsb {
  public:
    /// @throws std::runtime_error
    EmulatedUsb();
    ~EmulatedUsb();
    EmulatedUsb(const EmulatedUsb&) = delete;
    EmulatedUsb& operator=(const EmulatedUsb&) = delete;

    /// Plugs a unit in, which is used by a thread of the emulation's own from now on. It should be there before the first
    /// program looks: later ones may not be noticed.
    /// @throws std::runtime_error
    void plugIn(Fx3Unit& unit);

    /// Claims of a unit's interface that were not given back, by the order in which units were plugged in.
    int claims(std::size_t unit) const;

    /// Whether a driver of the kernel has a unit's interface, as one has at first; nobody else can claim it then.
    bool kernelHolds(std::size_t unit) const;

  private:
    class Device;
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace hxr::sim
