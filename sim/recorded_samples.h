#pragma once

#include <cstdint>

#include "sim/scene.h"

namespace hxr::sim {

/// Samples that are played on the air. May be read from any number of threads.
class RecordedSamples {
  public:
    virtual ~RecordedSamples() = default;

    /// Length in samples, 1 to below 2^32.
    virtual std::uint64_t size() const = 0;
    /// Samples a second.
    virtual double rateHz() const = 0;
    /// Reads samples from `first` on, all of them within the recording.
    virtual void read(std::uint64_t first, Baseband out) const = 0;
};

}  // namespace hxr::sim
