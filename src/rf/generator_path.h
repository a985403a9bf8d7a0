#pragma once

#include <array>

#include "link/words.h"

namespace hxr {

/// Leads the generator's signal out.
/// @param hz              of its LO
/// @param attenuatorCode  four times the attenuator step, 0 to 31
std::array<words::Word, 5> buildGeneratorPath(int band, double hz, int attenuatorCode);

}  // namespace hxr
