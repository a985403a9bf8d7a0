#pragma once

#include <cstddef>
#include <optional>

#include "sim/rail_filter.h"
#include "sim/status_record.h"
#include "sim/tuning.h"
#include "sim/unit_calibration.h"

namespace hxr::sim {

/// What the registers say of a capture.
struct CaptureSettings {
    std::size_t channel = 0;
    ChannelTuning tuning;
    double ncoHz = 0.0;  ///< of the channel's digital oscillator, 0 to 125 MHz
    RailTaps taps{};     ///< the response filter as loaded, 1.0 being its full scale
    /// The timebase over what it should be: synthesizers and oscillator turn so much faster than they say. The
    /// samples' own rate is taken as right, which places a line wrong by half a hertz a hundredth ppm at most.
    double timebaseRatio = 1.0;
};

/// Nothing without an input selected. With inputs of several channels it is the first of them.
///
/// @param groupHz  the shared LO of the group's master, for a unit that takes it from there
std::optional<CaptureSettings> captureSettings(const UnitState& state, const Oscillator& oscillator,
                                               std::optional<double> groupHz = std::nullopt);

/// Whether the input leads to the converter without a mixer, as in band 0.
bool isDirect(const ChannelTuning& tuning);

/// The row of a unit's tables over frequency that a tuning goes by.
std::size_t calibrationIndex(const ChannelTuning& tuning);

/// The row of its response tables.
struct ResponseRow {
    ResponseGrid grid;
    std::size_t k;
    bool crossed;  ///< the tables' first rail is Q, as up to row 24
};
ResponseRow responseRow(const ChannelTuning& tuning);

}  // namespace hxr::sim
