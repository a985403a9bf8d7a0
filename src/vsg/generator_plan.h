/// From settings to a playing generator.
#pragma once

#include "device/settings.h"
#include "hxr_api.h"
#include "link/command_list.h"
#include "rf/lo_context.h"

namespace hxr {

/// Row of the generator's calibration at a frequency in Hz.
std::size_t generatorIndexFor(double hz);

/// Plans what makes the generator play: its pattern's words, the shared synthesizer, and the way out. A level that is set
/// decides on `vsgAtten` and `vsgScale`, which are stored; the pattern itself stays as it is. Of one that is longer than the
/// generator's memory, as much as fits is played.
///
/// @param sharedFreq  Hz, where the pattern is to come out
/// @return an empty list for an empty pattern
/// @throws std::bad_alloc
CommandList planGenerator(GeneratorSettings& settings, double sharedFreq, LoContext& context,
                          const HXRCalData& image);

}  // namespace hxr
