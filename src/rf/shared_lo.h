/// The synthesizer that all channels of a unit can share, with the DDS and the offset chip that steer it.
#pragma once

#include <array>

#include "rf/channel_lo.h"
#include "rf/lo_context.h"

namespace hxr {

/// How `sharedLo` finds its VCO setting: from a table, or by itself, for the factory to read it back.
enum class SharedLoVco { tabled, readBack };

/// Starts the drivers of the converters; behind it they run.
inline constexpr std::array converterStart{
    words::expanderWrite(0x07, 0x10, 0x00),
    words::pairedWord(words::PairedChip::firstDriver, 3, 0x00C1E0),
    words::pairedWord(words::PairedChip::firstDriver, 1, 0x000000),
    words::pairedWord(words::PairedChip::firstDriver, 4, 0x000018),
    words::pairedWord(words::PairedChip::secondDriver, 3, 0x00C1E0),
    words::pairedWord(words::PairedChip::secondDriver, 1, 0x000000),
    words::pairedWord(words::PairedChip::secondDriver, 4, 0x000018),
};

/// Loads `sharedLo` whole: 59 words.
WordRun buildSharedLoImage(SharedLoVco vco);

/// Brings `sharedLo` and the converters' references up after power-on: 136 words.
WordRun buildSharedLoBringUp(SharedLoVco vco);

/// Tunes `sharedLo` for an LO of `hz` at the channels: 23 words.
WordRun tuneSharedLo(LoContext& context, int band, double hz);

/// Lets `sharedLo`, loaded to choose its VCO setting itself, find it for a VCO at four times `hz`: 10 words.
WordRun calibrateSharedLo(LoContext& context, double hz);

/// The two words after which a unit takes its shared LO from a group's master.
WordRun takeSharedLoFromMaster();

}  // namespace hxr
