#pragma once

#include <cstddef>

#include "sim/rotation.h"
#include "sim/scene.h"

namespace hxr::sim {

/// How a band that is given as samples at 50 MS/s around a middle of its own lies in a stretch of 50 MHz.
/// Where the stretch's edge goes through it, what is beyond is filtered out first: turned to its place it
/// would come back in at the other edge.
class Placement {
  public:
    /// @param offsetHz  the band's middle, from the stretch's centre
    /// @param reachHz   how far the band reaches to either side, at most 25 MHz
    Placement(double offsetHz, double reachHz);

    /// Whether anything of the band is within the stretch.
    bool visible() const { return part_ != Part::none; }
    /// Samples of the band that are needed on either side of those that go out.
    std::size_t margin() const;

    /// out += band * turn
    ///
    /// @param band  a margin, the samples for `out`, a margin; left changed
    /// @param turn  from the band's middle to the stretch's centre, at the first sample of `out`
    void add(Baseband out, Baseband band, const Rotation& turn) const;

  private:
    enum class Part { none, cut, whole };

    double offsetHz_;
    Part part_;
};

}  // namespace hxr::sim
