/// What an application wants of a stream. It counts from the next initiate on; what is refused changes nothing.
#pragma once

#include "device/hxr_device.h"
#include "hxr_api.h"

namespace hxr {

HXRStatus setStreamDataType(StreamSettings& settings, unsigned type);
HXRStatus setStreamFullScale(StreamSettings& settings, unsigned on);
HXRStatus setStreamTriggerEdge(StreamSettings& settings, unsigned edge);

/// @param index  0 to 6, -1 automatic
HXRStatus setStreamAtten(StreamSettings& settings, int index);

/// Divides the highest sample rate by a power of two: the unit by up to 4, this host by the rest.
HXRStatus setStreamSampleRate(StreamSettings& settings, int decimation);

/// Wants a bandwidth in Hz of unit and host alike; the plan narrows each to its sample rate.
/// @return `hxrSettingClamped` if a limit was taken; `hxrInvalidParameterErr` for a NaN
HXRStatus setStreamBandwidth(StreamSettings& settings, double hz);

/// The factor that brings a streaming channel's samples to their calibrated level.
/// @return `hxrInvalidConfigurationErr` with no stream planned; `hxrInvalidParameterErr` for a channel that doesn't
///         stream
HXRStatus getStreamCorrection(const HXRDevice& device, int channel, float& correction);

}  // namespace hxr
