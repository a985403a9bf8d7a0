#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/front_end.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// How a channel is tuned, as far as the chips' registers tell.
struct ChannelTuning {
    PathSwitches lo;
    /// The LO at the mixer; nothing if the synthesizer that the path leads there is off, in reset or not
    /// locked.
    std::optional<double> loHz;
    FrontEnd frontEnd;
    CaptureInput input;
};

/// What a unit's shared synthesizer delivers to its channels, or the one of its group if the unit is switched
/// to that.
///
/// @param groupHz  the shared LO of the group's master, for a unit that takes it from there
std::optional<double> sharedLoHz(const UnitState& state, std::optional<double> groupHz = std::nullopt);

/// @param channel  0 to 3
ChannelTuning channelTuning(const UnitState& state, std::size_t channel,
                            std::optional<double> groupHz = std::nullopt);

/// One bit a channel. First: its low synthesizer is locked. Second: its high synthesizer is locked, or the
/// shared one where that feeds the mixer directly.
struct LockFlags {
    std::uint8_t first = 0;
    std::uint8_t second = 0;
};
LockFlags lockFlags(const UnitState& state);

}  // namespace hxr::sim
