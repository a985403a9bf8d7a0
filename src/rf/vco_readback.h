/// How a synthesizer is made to find its VCO setting by itself, and to tell it.
///
/// The three bytes that it tells at each point of `HXRCBBData` are what the factory fills that table with.
#pragma once

#include <array>
#include <cstdint>

#include "link/command_list.h"
#include "rf/lo_context.h"

namespace hxr {

/// One of a unit's nine synthesizers.
struct Synthesizer {
    enum class Kind { low, high, shared };

    Kind kind;
    int channel = 0;  ///< 0 to 3; the shared one belongs to none
};

/// Tunes a synthesizer to a point of its table; behind the last point that one's frequency counts. A channel's is tuned
/// with all that belongs to it, so that the other of the channel goes to rest. The synthesizers' state changes only if all
/// goes well.
///
/// @param point  0 or more
/// @throws std::bad_alloc
CommandList planSelfCalibration(LoContext& context, const Synthesizer& synthesizer, int point);

/// Makes a synthesizer give its VCO setting back, behind which comes a status with `readback`: 71 words, or 85 for a
/// `highLo`.
/// @throws std::bad_alloc
CommandList planVcoReadback(const Synthesizer& synthesizer);

/// The three bytes of a point, of a status's `readback`.
std::array<std::uint8_t, 3> vcoSettingOf(const Synthesizer& synthesizer, std::uint32_t readback);

}  // namespace hxr
