#include "device/sweep_settings.h"

#include <algorithm>
#include <cmath>

#include "device/setting_limits.h"

namespace hxr {

HXRStatus setSweepAtten(SweepSettings& settings, int index) {
    return storeAttenuator(index, settings.sweepAtten);
}

HXRStatus setSweepStartStop(SweepSettings& settings, double start, double stop) {
    if (std::isnan(start) || std::isnan(stop)) return hxrInvalidParameterErr;
    HXRStatus result = hxrNoError;
    const auto moveTo = [&](double& edge, double hz) {
        edge = hz;
        result = hxrSettingClamped;
    };
    // A span that is too small grows upward, and downward only where the range ends. Edges that are both infinite have
    // no difference; the highest frequency then settles them.
    if (start < frequencyLimits.lowest) moveTo(start, frequencyLimits.lowest);
    if (stop - start < smallestSweepSpan) moveTo(stop, start + smallestSweepSpan);
    if (stop > frequencyLimits.highest) moveTo(stop, frequencyLimits.highest);
    if (stop - start < smallestSweepSpan) moveTo(start, stop - smallestSweepSpan);
    settings.sweepCenter = (start + stop) / 2;
    settings.sweepSpan = stop - start;
    return result;
}

HXRStatus setSweepCenterSpan(SweepSettings& settings, double center, double span) {
    return setSweepStartStop(settings, center - span * 0.5, span * 0.5 + center);
}

HXRStatus setSweepCoupling(SweepSettings& settings, double rbw, double vbw, double time) {
    if (std::isnan(rbw) || std::isnan(vbw) || std::isnan(time)) return hxrInvalidParameterErr;
    return std::max({storeWithin(resolutionLimits, rbw, settings.sweepRBW),
                     storeWithin(resolutionLimits, vbw, settings.sweepVBW),
                     storeWithin(sweepTimeLimits, time, settings.sweepTime)});
}

HXRStatus setSweepDetector(SweepSettings& settings, unsigned detector, unsigned videoUnits) {
    if (videoUnits > highestVideoUnits) return hxrInvalidParameterErr;
    const HXRStatus refused = storeSelector(highestDetector, detector, settings.sweepDetector);
    if (refused == hxrNoError) settings.sweepVideoUnits = videoUnits;
    return refused;
}

HXRStatus setSweepScale(SweepSettings& settings, unsigned scale) {
    return storeSelector(highestScale, scale, settings.sweepScale);
}

HXRStatus setSweepWindow(SweepSettings& settings, unsigned window) {
    return storeSelector(highestWindow, window, settings.sweepWindow);
}

}  // namespace hxr
