/// What this host remembers of a unit's timebase from one connect to the next: a small file beside the calibration
/// cache.
#pragma once

#include <cstdint>
#include <optional>

#include "link/flash_cache.h"

namespace hxr {

struct HoldoverRecord {
    std::uint64_t time;        ///< seconds since 1970, UTC
    std::uint64_t coarseTune;  ///< in the low 16 bits
};

/// @return nothing if the unit has no record here, or a bad one
std::optional<HoldoverRecord> readHoldoverRecord(const CalFolder& folder, std::uint32_t serialNumber);

/// Replaces the unit's record. One that can't be written is no error: the next connect starts from the factory's values.
void writeHoldoverRecord(const CalFolder& folder, std::uint32_t serialNumber, const HoldoverRecord& record);

}  // namespace hxr
