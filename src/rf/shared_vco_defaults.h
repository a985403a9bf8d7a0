#pragma once

#include <array>
#include <cstdint>

namespace hxr {

struct SharedVcoDefault {
    std::uint32_t core;
    std::uint32_t band;
    std::int32_t bias;
};

/// How the shared synthesizer's VCO is set on a unit without factory tuning data; row i stands for a VCO frequency of
/// 4000 + 7.8125 i MHz.
extern const std::array<SharedVcoDefault, 513> sharedVcoDefaults;

}  // namespace hxr
