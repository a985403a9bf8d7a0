#include "sweep/full_band_capture.h"

#include "device/health.h"
#include "device/setting_limits.h"
#include "sweep/sample_block.h"

namespace hxr {
namespace {

void configureFullBand(HXRDevice& device, const FullBandRequest& request) {
    const auto index = static_cast<std::size_t>(request.channel);
    std::int32_t& lastBand = device.lastBand[index];
    device.fullBandPlan = planFullBand({.synthesizers = device.loContext,
                                        .corrections = *device.corrections,
                                        .channel = request.channel,
                                        .delay = device.channelDelay[index],
                                        .lastBand = lastBand},
                                       request.reconfigure ? &request.tuning : nullptr, request.blocks);
    if (request.reconfigure) lastBand = bandOf(request.tuning);
    device.fullBandConfigured = true;
}

void takeCapture(HXRDevice& device, const ControlClaim& control, const FullBandPlan& plan, float* iq) {
    const auto [complete, received] = device.link->request(control, plan.commands);
    const auto blocks = static_cast<std::size_t>(plan.blocks);
    for (std::size_t i = 0; i < blocks; ++i) takeBlock(received, i, iq + i * 2 * samplesPerBlock);
    if (!complete) return;
    const StatusRecord record({received.buffers[blocks], received.lengths[blocks]});
    parseStatus(device, &record);
}

/// Whether a sweep or a stream is in place on a unit or on the group that it belongs to.
bool acquires(const HXRDevice& device) {
    const auto configured = [](const HXRDevice& unit) {
        return unit.sweepConfigured || unit.streamConfigured;
    };
    return configured(device) || (device.isSlave() && configured(*device.master));
}

}  // namespace

HXRStatus captureFullBand(HXRDevice& device, FullBandRequest request, float* iq, InterfaceLock& lock) {
    if (acquires(device)) return hxrInvalidConfigurationErr;
    if (!inputLimits.contain(request.channel) || !attenuatorIndexLimits.contain(request.tuning.attenuator) ||
        !captureBlockLimits.contain(request.blocks)) {
        return hxrInvalidParameterErr;
    }
    double& loHz = request.tuning.loHz;
    const HXRStatus limited = request.reconfigure ? storeWithin(fullBandLoLimits, loHz, loHz) : hxrNoError;
    if (limited < 0) return limited;
    const ControlClaim control = device.link->claimControl(EndpointOwner::entry);
    if (!control) return hxrInvalidConfigurationErr;

    useOverrides(device);
    configureFullBand(device, request);
    {
        const Unlocked traffic(lock);
        takeCapture(device, control, *device.fullBandPlan, iq);
    }
    const HXRStatus status = statusOfCapture(device, request.channel);
    return status == hxrNoError ? limited : status;
}

}  // namespace hxr
