#include "device/stream_settings.h"

#include <algorithm>
#include <bit>

#include "device/channel_settings.h"
#include "device/setting_limits.h"

namespace hxr {

HXRStatus setStreamDataType(StreamSettings& settings, unsigned type) {
    return storeSelector(highestSwitch, type, settings.streamDataType);
}

HXRStatus setStreamFullScale(StreamSettings& settings, unsigned on) {
    return storeSelector(highestSwitch, on, settings.streamFullScale);
}

HXRStatus setStreamTriggerEdge(StreamSettings& settings, unsigned edge) {
    return storeSelector(highestSwitch, edge, settings.streamTriggerEdge);
}

HXRStatus setStreamAtten(StreamSettings& settings, int index) {
    return storeAttenuator(index, settings.streamAtten);
}

HXRStatus setStreamSampleRate(StreamSettings& settings, int decimation) {
    if (!decimationLimits.contain(decimation) || !std::has_single_bit(static_cast<unsigned>(decimation))) {
        return hxrInvalidParameterErr;
    }
    settings.decimation = decimation;
    settings.hardwareDecimation = std::min(decimation, mostHardwareDecimation);
    settings.hostDecimation = decimation / settings.hardwareDecimation;
    return hxrNoError;
}

HXRStatus setStreamBandwidth(StreamSettings& settings, double hz) {
    const HXRStatus stored = storeWithin(streamBandwidthLimits, hz, settings.streamBandwidth);
    if (stored >= 0) settings.hardwareBandwidth = settings.outputBandwidth = settings.streamBandwidth;
    return stored;
}

HXRStatus getStreamCorrection(const HXRDevice& device, int channel, float& correction) {
    if (!device.streamConfigured) return hxrInvalidConfigurationErr;
    const auto c = channelIndex(device, channel);
    if (!c || !streams(device, *c)) return hxrInvalidParameterErr;
    correction = static_cast<float>(device.streamCorrection[*c]);
    return hxrNoError;
}

}  // namespace hxr
