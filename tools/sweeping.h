/// What the programs that sweep share.
#pragma once

#include <string>

#include "support.h"
#include "trace.h"

namespace tools {

struct SweepSettings {
    int channel = 0;
    double startHz = 100e3, stopHz = 20e9;
    double rbwHz = 1e6, vbwHz = 0;  ///< a video bandwidth of 0 is the resolution bandwidth
    double refLevel = -20;          ///< dBm
    int attenuationDb = -1;         ///< -1: what the reference level asks for
    unsigned window = 0, detector = 0, video = 0, scale = 0;  ///< as the driver numbers them
};

/// Sets a channel of an idle group up, without yet initiating it.
/// @throws std::runtime_error
void setSweep(const Group& unit, const SweepSettings& settings);

/// What sweeps of an initiated group are like, with room for the levels of one.
/// @throws std::runtime_error
Trace emptyTrace(const Group& unit);

/// Draws a trace into a PNG file.
/// @throws std::runtime_error
void drawPicture(const Trace& trace, double refLevel, const std::string& title, const std::string& file,
                 const std::string& units = "dBm");

}  // namespace tools
