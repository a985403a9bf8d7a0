#pragma once

#include <complex>
#include <cstddef>
#include <optional>

#include "sim/decimation_filter.h"
#include "sim/rail_filter.h"
#include "sim/status_record.h"
#include "sim/tuning.h"
#include "sim/unit_calibration.h"

namespace hxr::sim {

/// A row of a unit's response tables.
struct ResponseRow {
    ResponseGrid grid = ResponseGrid::full;
    std::size_t k = 0;
    bool crossed = false;  ///< the tables' first rail is Q, as up to row 24
};

/// What the registers say of a capture, or of a channel's stream.
struct CaptureSettings {
    std::size_t channel = 0;
    ChannelTuning tuning;
    std::size_t k = 0;  ///< row of the unit's tables over frequency that the tuning goes by
    ResponseRow response{};
    double ncoHz =
        0.0;  ///< of the channel's digital oscillator, -62.5 to 62.5 MHz; 0 where a capture goes past it
    RailTaps taps{};  ///< the response filter as loaded, 1.0 being its full scale
    /// The timebase over what it should be: synthesizers and oscillator turn so much faster than they say. The
    /// samples' own rate is taken as right, which places a line wrong by half a hertz a hundredth ppm at most.
    double timebaseRatio = 1.0;
    DecimationFilter decimation{};
    /// Of streams: what the samples are multiplied by at the end.
    std::complex<double> turn = 1.0;
    /// Streams of channels that share an oscillator differ in phase as the unit's channels do.
    bool sharesOscillator = false;
};

/// Nothing without an input selected. With inputs of several channels it is the first of them.
///
/// @param groupHz  the shared LO of the group's master, for a unit that takes it from there
std::optional<CaptureSettings> captureSettings(const UnitState& state, const Oscillator& oscillator,
                                               std::optional<double> groupHz = std::nullopt);

/// What a channel streams.
///
/// @param timebaseRatio  of the timebase that the unit runs on
/// @param groupHz        as above
CaptureSettings streamSettings(const UnitState& state, std::size_t channel, double timebaseRatio,
                               std::optional<double> groupHz = std::nullopt);

/// By how much streams are slower than 50 MS/s, as the route word tells.
std::size_t streamDecimation(const UnitState& state);

/// Whether the input leads to the converter without a mixer, as in band 0.
bool isDirect(const ChannelTuning& tuning);

}  // namespace hxr::sim
