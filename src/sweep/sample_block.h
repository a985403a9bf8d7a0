#pragma once

#include <cstddef>

#include "link/udp_device.h"

namespace hxr {

/// Complex samples of a block, the least that a capture takes.
inline constexpr int samplesPerBlock = 2048;

/// Puts the samples of a received block in their place, full scale 1.0; zeros where a lost link or a wrong answer has left
/// none.
///
/// @param out  receives `samplesPerBlock` complex samples, real part first
void takeBlock(const ReceiveResult& received, std::size_t position, float* out);

}  // namespace hxr
