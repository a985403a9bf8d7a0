#include "rf/ratio_table.h"

namespace hxr {

// Sixteen entries a line: 62.5 MHz of output.
constexpr std::array<std::uint8_t, 2049> ratioTable{
#include "rf/ratio_table.inc"
};

}  // namespace hxr
