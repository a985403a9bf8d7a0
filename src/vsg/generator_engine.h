#pragma once

#include "hxr_api.h"

namespace hxr {

struct HXRDevice;

/// Plans the generator of a group's master and starts it. It plays on by itself until it is switched off, so there is
/// nothing to keep. Whether the unit got all of it shows in its link.
///
/// @return `hxrNoError`
/// @throws std::bad_alloc, with nothing sent
HXRStatus configureGenerator(HXRDevice& master);

}  // namespace hxr
