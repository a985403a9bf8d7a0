#pragma once

#include <string>

#include "sim/scene.h"

namespace hxr::sim {

/// The form of a tone in words, for messages and help.
inline constexpr const char* toneTextForm = "a carrier in the air, FREQ:LEVEL in Hz and dBm, as 2.4G:-30";

/// A number with nothing around it.
/// @throws std::invalid_argument for anything else
double numberFromText(const std::string& text);

/// A time in seconds, with u or m behind it for its millionths and thousandths.
/// @throws std::invalid_argument for anything else, and below 0
double timeFromText(const std::string& text);

/// A frequency in Hz, with k, M or G behind it for its thousands.
/// @throws std::invalid_argument for anything else, and below 0
double frequencyFromText(const std::string& text);

/// Adds a tone told as FREQ:LEVEL.
/// @throws std::invalid_argument, saying what is wrong
void addToneFromText(Scene& scene, const std::string& text);

}  // namespace hxr::sim
