#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "device/settings.h"
#include "hxr_api.h"
#include "platform/aligned_memory.h"
#include "platform/thread.h"

namespace hxr {

struct HXRDevice;
struct PlannedSweep;

/// Runs a sweep plan, any number of times: one thread keeps the unit busy and takes its samples in, two transform them
/// step by step, each straight into its stretch of the trace.
///
/// From `start` to `finish` it holds the `acquisitionMutex` of the unit that sweeps, whose control endpoint it uses.
/// Starting and finishing may be done by two threads; ending the engine belongs to the one that aborts.
class SweepEngine {
  public:
    /// @param unit     the unit that sweeps; outlives the engine
    /// @param channel  0 to 3, of the unit
    /// @throws std::bad_alloc, std::system_error
    SweepEngine(HXRDevice& unit, int channel, const SweepSettings& settings, PlannedSweep planned);

    /// Ends a running sweep without its result, with the link in order behind it.
    ~SweepEngine();
    SweepEngine(const SweepEngine&) = delete;
    SweepEngine& operator=(const SweepEngine&) = delete;

    /// What the plan has made of the settings.
    const SweepResult& result() const;

    /// @return `hxrNoError`; `hxrSweepAlreadyStartedErr` if the unit's control endpoint is in use;
    ///         `hxrMemoryAllocationErr`, with nothing started
    HXRStatus start();

    /// Waits for the sweep's end.
    /// @param sweep  receives `result().points` values; may be null
    /// @return as `hxrSweepFinish`
    HXRStatus finish(float* sweep);

  private:
    class Run;
    std::unique_ptr<Run> run_;
};

/// Plans a sweep of the focus channel of a group and makes the engine that runs it.
/// @return `hxrNoError`
/// @throws std::bad_alloc, std::system_error, with no engine made
HXRStatus configureSweep(HXRDevice& master);

}  // namespace hxr
