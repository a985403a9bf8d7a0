/// The boot loader that the USB controller of a unit without firmware runs.
#pragma once

#include <filesystem>

#include "netconfig/usb_endpoint.h"

namespace hxr {

/// Whether the device is in its boot loader.
bool bootLoaderRuns(CCyControlEndPoint& control, const platform::Clock& clock);

/// Loads a firmware file into the controller's RAM and starts it. Nothing tells whether that worked but that the device
/// comes back with the firmware's identity.
/// @throws std::bad_alloc
void loadFirmware(CCyControlEndPoint& control, const std::filesystem::path& file,
                  const platform::Clock& clock);

}  // namespace hxr
