#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <span>

#include "device/interface_lock.h"
#include "device/settings.h"
#include "hxr_api.h"
#include "link/endpoint_claim.h"
#include "platform/aligned_memory.h"
#include "platform/thread.h"

namespace hxr {

struct HXRDevice;
struct PlannedSweep;
struct UnitAccess;

/// Runs a sweep plan, any number of times: one thread keeps the unit busy and takes its samples in, two transform them
/// step by step, each straight into its stretch of the trace.
///
/// From `start` to `finish` it owns the control endpoint of the unit that sweeps. All operations are called under the
/// interface lock, which `finish` gives back while it waits; `stop` is called without it.
class SweepEngine {
  public:
    /// @param unit     the unit that sweeps; outlives the engine
    /// @param channel  0 to 3, of the unit
    /// @throws std::bad_alloc, std::system_error
    SweepEngine(HXRDevice& unit, int channel, const SweepSettings& settings, PlannedSweep planned);

    ~SweepEngine();
    SweepEngine(const SweepEngine&) = delete;
    SweepEngine& operator=(const SweepEngine&) = delete;

    /// What the plan has made of the settings.
    const SweepResult& result() const;

    /// @return `hxrNoError`; `hxrSweepAlreadyStartedErr`; `hxrInvalidConfigurationErr` if somebody else owns the control
    ///         endpoint
    /// @throws std::bad_alloc, with nothing started
    HXRStatus start();

    /// Waits for the sweep's end.
    /// @param sweep  receives `result().points` values; may be null
    /// @return as `hxrSweepFinish`; `hxrInvalidConfigurationErr` if the engine is stopped meanwhile or another thread is
    ///         finishing the sweep
    HXRStatus finish(float* sweep, InterfaceLock& lock);

    /// Whether a sweep of this engine owns the control endpoint of a unit.
    bool hasControlOf(const HXRDevice& unit) const;

    /// Hands the endpoint over to whoever stops the engine.
    ControlClaim takeControl();

    /// Ends the threads, and a running sweep without its result, with the link in order behind it. The engine doesn't use
    /// the unit any more.
    void stop();

  private:
    class Run;
    std::unique_ptr<Run> run_;
};

/// Plans a sweep of the focus channel of a group and makes the engine that runs it.
/// @throws std::bad_alloc, std::system_error, with no engine made
std::shared_ptr<SweepEngine> configureSweep(std::span<const UnitAccess> group, const Settings& settings);

}  // namespace hxr
