#pragma once

#include <cstddef>
#include <vector>

#include "sim/unit_state.h"

namespace hxr::sim {

/// The filter between the front end and the samples that go out, and their rate. Its delay is taken out.
class DecimationFilter {
  public:
    /// That of a capture: 50 MS/s, flat over 39.06 MHz.
    DecimationFilter() = default;
    /// The one that has been loaded for streams: 189 taps, the second half a mirror of the first, at five times
    /// the rate that goes out.
    ///
    /// @param factor  1, 2 or 4: of 50 MS/s so much less goes out
    static DecimationFilter loaded(const RegisterFile& registers, std::size_t factor);

    std::size_t factor() const { return factor_; }
    bool isLoaded() const { return !taps_.empty(); }
    /// Beyond this distance from the middle nothing passes.
    double reachHz() const;
    /// @param hz  from the middle
    double gainAt(double hz) const;

  private:
    std::size_t factor_ = 1;
    std::vector<double> taps_;  ///< from the first to the middle one; empty: that of a capture
};

}  // namespace hxr::sim
