/// Configuration messages for the GPS receiver: UBX frames in register blocks, since it listens at a register of the
/// unit.
#pragma once

#include <cstdint>
#include <vector>

#include "link/words.h"

namespace hxr {

inline constexpr int ubxMostValueBytes = 8;

/// Words that set one value; `size` of its bytes go out, none if it is below 1.
std::vector<words::Word> buildGpsValueMessage(std::uint32_t key, std::uint64_t value, int size);

/// Makes the receiver report each second's solution, on the port that the unit listens to.
std::vector<words::Word> gpsReportMessage();

/// Makes the receiver give one pulse a second, on UTC's grid.
std::vector<words::Word> gpsTimePulseMessage();

/// Tells the receiver that it stands still.
std::vector<words::Word> gpsStationaryMessage();

}  // namespace hxr
