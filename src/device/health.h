/// A unit's health: the one reader of status records, and the diagnostics made of them.
#pragma once

#include <span>

#include "device/hxr_device.h"
#include "hxr_api.h"
#include "link/status_record.h"

namespace hxr {

inline constexpr std::size_t diagnosticsCount = 11;

/// Takes a status record into the device's last status, in one go. A null record does nothing; one with a
/// wrong magic sets `dataSyncFault` and leaves all else as it was. Follows a timebase that the unit disciplines. May run
/// on any thread.
void parseStatus(HXRDevice& device, const StatusRecord* record);

/// Asks for a status record and takes it over; one that doesn't come counts as one with a wrong magic.
void requestStatus(HXRDevice& device, const ControlClaim& control);

/// Asks for a status record unless somebody owns the control endpoint. Gives the interface lock back meanwhile.
/// @return whether it asked; if not, the last status stands
bool refreshStatus(HXRDevice& device, InterfaceLock& lock);

/// The last good status is more than a second old.
bool statusIsOld(const HXRDevice& device);

/// What the link and the last status say of a capture of samples that the status came behind.
///
/// @param channel  0 to 3
/// @return a lost link's status; `hxrDataSyncErr`; `hxrADCAlignmentErr`; `hxrADCOverflow` of the channel; `hxrNoError`
HXRStatus statusOfCapture(const HXRDevice& unit, int channel);

/// Gives the health values, from a new status record if the last is older than a second and nobody else owns
/// the control endpoint.
///
/// @param out  supply, `railX2`, `railX1`, `railX5`, temperatures of the FPGA, C, A, B, and the readings Q8,
///             A, B
/// @return the link's status; `out` holds the last known values whatever it is
HXRStatus readDiagnostics(HXRDevice& device, std::span<float, diagnosticsCount> out, InterfaceLock& lock);

}  // namespace hxr
