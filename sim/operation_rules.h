#pragma once

#include <optional>
#include <string>

#include "sim/operations.h"

namespace hxr::sim {

/// What is wrong with an operation seen by itself: a field out of its range, a register block cut off by the
/// packet's end, filler words missing behind it. Nothing if it is sound.
std::optional<std::string> breachOf(const Operation& operation);

}  // namespace hxr::sim
