#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "sim/scene.h"

namespace hxr::sim {

/// How a stream begins.
struct StreamStart {
    std::int64_t firstSample;          ///< at 50 MS/s, counted from 1970
    double timebaseRatio;              ///< as `Oscillator::frequencyRatio` gives it
    std::optional<double> sharedLoHz;  ///< of the group's master
};

/// The cables between the units of a group: they bring the master's start, timebase and shared LO to the slaves, and what
/// a generator plays to the receivers of all. Any thread may use it.
class SyncLine {
  public:
    /// Starts that there were so far.
    std::uint64_t starts() const;
    void start(const StreamStart& start);
    /// The latest start, if there were more than so many.
    std::optional<StreamStart> startAfter(std::uint64_t starts) const;

    /// Leads a generator's output to all; null: it has none.
    void play(const void* generator, std::shared_ptr<const Source> output);
    /// What the generators play.
    std::vector<std::shared_ptr<const Source>> played() const;

  private:
    mutable std::mutex mutex_;
    std::uint64_t starts_ = 0;
    std::optional<StreamStart> latest_;
    std::map<const void*, std::shared_ptr<const Source>> played_;
};

}  // namespace hxr::sim
