#pragma once

#include <string>

#include "sim/faults.h"

namespace hxr::sim {

/// How faults are written on a command line, for a help text.
extern const char* const faultTextForm;

/// Adds to a plan the fault that a text tells, for instance "page=300:length=8215" or "dies-after=100".
/// @throws std::invalid_argument for a text of another form
void addFaultFromText(FaultPlan& plan, const std::string& text);

}  // namespace hxr::sim
