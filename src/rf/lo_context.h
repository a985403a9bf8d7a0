#pragma once

#include <array>

#include "link/words.h"

namespace hxr {

/// What a unit's synthesizers hold, as far as the lists built so far have told them.
struct LoContext {
    bool cbbLoaded = false;                                 ///< the unit's factory tuning data are in use
    std::array<bool, words::channelsPerUnit> lowLoReady{};  ///< by channel: its `lowLo` holds its full image
};

}  // namespace hxr
