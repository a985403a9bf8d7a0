#pragma once

#include <array>
#include <cstdint>

namespace hxr {

/// The divide ratios that the shared synthesizer's offset plan starts from; entry i is for outputs from
/// 7999 + 3.90625 i MHz on. With them the DDS stays between 35.6 and 50 MHz over the whole range of 8 to 16 GHz.
extern const std::array<std::uint8_t, 2049> ratioTable;

}  // namespace hxr
