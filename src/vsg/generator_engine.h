#pragma once

#include "device/settings.h"

namespace hxr {

struct UnitAccess;

/// Plans the generator of a group's master and starts it. It plays on by itself until it is switched off, so there is
/// nothing to keep. Whether the unit got all of it shows in its link.
///
/// @param settings  of the group; receives the attenuator and the scale that are used
/// @return whether it plays: false for an empty pattern
/// @throws std::bad_alloc, with nothing sent
bool configureGenerator(const UnitAccess& master, Settings& settings);

}  // namespace hxr
