/// The words that put chips to rest.
#pragma once

#include <array>

#include "link/command_list.h"
#include "link/words.h"
#include "rf/lo_context.h"

namespace hxr {

/// Switches the generator off.
inline constexpr std::array generatorOffWords{
    words::expanderWrite(words::generatorAndReference, 0x3F, 0x27),
    words::chipWrite(words::Chip::generator, 0x0600, 0x00),
    words::expanderWrite(0x06, 0x60, 0x60),
    words::expanderWrite(0x07, 0x02, 0x00),
};

/// Switches a channel's synthesizers off. What its `lowLo` held is lost.
std::array<words::Word, 3> buildChannelOff(LoContext& context, int channel);

/// The 14 words that switch all synthesizers of a unit off. What `lowLo` held is lost.
std::array<words::Word, 14> buildLoOff(LoContext& context);

/// One packet of 44 words that puts all synthesizers, the generator and the front ends of a unit to rest.
/// What they held is lost.
CommandList buildLowPower(LoContext& context);

}  // namespace hxr
