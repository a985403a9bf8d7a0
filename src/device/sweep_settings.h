/// What an application wants of a sweep. It counts from the next initiate on; what is refused changes nothing.
#pragma once

#include "device/settings.h"
#include "hxr_api.h"

namespace hxr {

/// @param index  0 to 6, -1 automatic
HXRStatus setSweepAtten(SweepSettings& settings, int index);

/// Takes the range of a sweep, moved and widened as the frequency range and the smallest span ask.
/// @return `hxrSettingClamped` if it was; `hxrInvalidParameterErr` if a value is a NaN
HXRStatus setSweepStartStop(SweepSettings& settings, double start, double stop);

/// The same for a centre and a span; refused too if they give no number.
HXRStatus setSweepCenterSpan(SweepSettings& settings, double center, double span);

/// RBW and VBW in Hz, time in seconds.
/// @return `hxrSettingClamped` if a limit was taken for any; `hxrInvalidParameterErr` if any is a NaN
HXRStatus setSweepCoupling(SweepSettings& settings, double rbw, double vbw, double time);

HXRStatus setSweepDetector(SweepSettings& settings, unsigned detector, unsigned videoUnits);
HXRStatus setSweepScale(SweepSettings& settings, unsigned scale);
HXRStatus setSweepWindow(SweepSettings& settings, unsigned window);

}  // namespace hxr
