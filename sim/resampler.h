#pragma once

#include <cstddef>
#include <vector>

#include "sim/scene.h"

namespace hxr::sim {

/// Brings samples of any rate to 50 MS/s with a windowed-sinc filter in 256 phases, between which it
/// interpolates, so that the ratio of the rates may be whatever it is. Images and aliases are 80 dB down, up
/// to 42 % of the lower of both rates the response is flat, and at half of it nothing is left.
class Resampler {
  public:
    /// @param rateHz  of the samples that come in
    explicit Resampler(double rateHz);

    /// How far one sample at 50 MS/s is from the next, in samples that come in.
    double step() const { return step_; }
    /// Samples that one sample at 50 MS/s is made of.
    std::size_t taps() const { return taps_; }
    /// Of those, the ones ahead of the one at or before its place.
    std::size_t tapsAhead() const { return taps_ / 2 - 1; }
    /// Samples that `count` at 50 MS/s are made of.
    std::size_t needed(std::size_t count) const;

    /// out[n] is the input at tapsAhead() + fraction + n * step().
    ///
    /// @param in        `needed` samples
    /// @param fraction  0 to below 1
    void resample(Baseband out, const Baseband& in, double fraction) const;

  private:
    double step_;
    std::size_t taps_;
    std::vector<float> phases_;  ///< one more than there are, the last being the first moved on by a sample
};

}  // namespace hxr::sim
