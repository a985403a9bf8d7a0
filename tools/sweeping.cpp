#include "sweeping.h"

#include <array>
#include <fstream>
#include <stdexcept>

namespace tools {

void setSweep(const Group& unit, const SweepSettings& settings) {
    constexpr int dbPerStep = 5;
    if (settings.channel >= unit.channelCount()) throw noSuchChannel(unit, settings.channel);
    std::array<int, 16> enabled{};
    enabled[static_cast<std::size_t>(settings.channel)] = 1;
    check("channel", hxrSetChannelConfig(unit, enabled.data(), settings.channel));
    check("reference level", hxrSetSweepRefLevel(unit, settings.refLevel));
    check("attenuator",
          hxrSetSweepAtten(unit, settings.attenuationDb < 0 ? -1 : settings.attenuationDb / dbPerStep));
    check("range", hxrSetSweepStartStop(unit, settings.startHz, settings.stopHz));
    const double vbw = settings.vbwHz > 0 ? settings.vbwHz : settings.rbwHz;
    check("bandwidths", hxrSetSweepCoupling(unit, settings.rbwHz, vbw, 1e-6));
    check("window", hxrSetSweepWindow(unit, settings.window));
    check("detector", hxrSetSweepDetector(unit, settings.detector, settings.video));
    check("units", hxrSetSweepScale(unit, settings.scale));
}

Trace emptyTrace(const Group& unit) {
    Trace trace;
    int points = 0;
    check("parameters",
          hxrSweepGetParameters(unit, &trace.rbwHz, &trace.vbwHz, &trace.startHz, &trace.binHz, &points));
    trace.levels.resize(static_cast<std::size_t>(points));
    return trace;
}

void drawPicture(const Trace& trace, double refLevel, const std::string& title, const std::string& file,
                 const std::string& units) {
    constexpr std::size_t pictureColumns = 1280;
    const TemporaryFile columns;
    std::ofstream stream(columns.path());
    writeColumns(stream, trace, pictureColumns);
    if (!stream.flush()) throw std::runtime_error("can't write " + columns.path());
    const std::string bandwidths = "RBW " + hertzText(trace.rbwHz, 4) + ", VBW " + hertzText(trace.vbwHz, 4);
    runBeside({"hxr-plot", columns.path(), file, std::to_string(refLevel), title, bandwidths, units});
}

}  // namespace tools
