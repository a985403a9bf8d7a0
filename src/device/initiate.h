/// From settings to running acquisitions, and back.
#pragma once

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// Whether an abort leaves the synthesizers tuned, which saves their settling at the next initiate.
enum class IdleLo { keep, off };

/// Applies all settings to a group, through its master: routes and aligns the units, slaves first, follows temperature
/// and timebase, and starts what is enabled. An initiated group is aborted first. Settings made meanwhile count from the
/// next initiate on.
///
/// @return `hxrNoError` or a warning; `hxrInvalidConfigurationErr` for a sweep without its channel, or if somebody
///         else owns an endpoint of the group; `hxrMemoryAllocationErr`. A link that is lost meanwhile shows in the
///         next operation that reports it.
HXRStatus initiate(HXRDevice& device, InterfaceLock& lock);

/// Ends everything that runs in a group, through its master; nothing on an idle one. Needs no memory.
/// @return `hxrNoError` if the group was idle; `hxrInvalidConfigurationErr`, with nothing changed, if somebody else
///         owns an endpoint of the group; else the master's link status; the group is idle then whatever that says
HXRStatus abort(HXRDevice& device, IdleLo idle, InterfaceLock& lock);

/// Aborts a device that nobody else knows any more.
void abortForDestruction(HXRDevice& device) noexcept;

}  // namespace hxr
