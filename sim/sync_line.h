#pragma once

#include <cstdint>
#include <mutex>
#include <optional>

namespace hxr::sim {

/// How a stream begins.
struct StreamStart {
    std::int64_t firstSample;          ///< at 50 MS/s, counted from 1970
    double timebaseRatio;              ///< as `Oscillator::frequencyRatio` gives it
    std::optional<double> sharedLoHz;  ///< of the group's master
};

/// The cable between the units of a group: it brings the master's start, timebase and shared LO to the slaves.
/// Any thread may use it.
class SyncLine {
  public:
    /// Starts that there were so far.
    std::uint64_t starts() const;
    void start(const StreamStart& start);
    /// The latest start, if there were more than so many.
    std::optional<StreamStart> startAfter(std::uint64_t starts) const;

  private:
    mutable std::mutex mutex_;
    std::uint64_t starts_ = 0;
    std::optional<StreamStart> latest_;
};

}  // namespace hxr::sim
