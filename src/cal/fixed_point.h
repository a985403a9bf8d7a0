/// Numbers as the receiver's 16-bit fields hold them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace hxr {

/// A number cut to an integer of signed 16 bits, the nearest one beyond their range. Calibration data with gaps make a
/// NaN, which gives 0.
inline std::uint16_t fixed16(double value) {
    const double kept = std::isnan(value) ? 0.0 : std::clamp(value, -32768.0, 32767.0);
    return static_cast<std::uint16_t>(static_cast<std::int16_t>(kept));
}

}  // namespace hxr
