/// The timebase of a unit: a DAC value made of a coarse tune and a part that follows temperature.
#pragma once

#include <cstdint>

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

/// The part of a DAC value that the calibration gives for the present temperature.
std::int32_t temperaturePartOf(const HXRDevice& device);

/// Works the DAC value out at the present temperature and sends it.
void pushTimebase(HXRDevice& device, const ControlClaim& control);

/// Sends the DAC value as it stands, with the reference and who disciplines it.
/// @return the link's status
HXRStatus sendTimebase(HXRDevice& device, const ControlClaim& control);

/// Chooses the reference of an idle unit.
/// @return `hxrInvalidParameterErr`, `hxrInvalidConfigurationErr` while initiated or while somebody owns the control endpoint,
///         the link's status
HXRStatus setReference(HXRDevice& device, unsigned reference, InterfaceLock& lock);

/// Lets an idle unit discipline its timebase to GPS or not.
/// @return as `setReference`
HXRStatus setGpsTimebaseUpdate(HXRDevice& device, unsigned on, InterfaceLock& lock);

/// Sets the coarse tune of an idle unit and sends it.
/// @return `hxrInvalidConfigurationErr` while initiated or while somebody owns the control endpoint,
///         the link's status
HXRStatus setCoarseTune(HXRDevice& device, std::uint16_t value, InterfaceLock& lock);

/// Finds the coarse tune to start with: the newest of the factory's history and the holdover record of this host.
void findStartingCoarseTune(HXRDevice& device);

/// Date of the last entry of the factory's history of coarse tunes, 0 if there is none.
std::uint64_t lastFactoryTuneDate(const HXRDevice& device);

/// Follows a unit that disciplines itself: where its DAC has moved, remembers the coarse tune, here and in the holdover
/// record. May run on any thread, one at a time.
void followGps(HXRDevice& device);

}  // namespace hxr
