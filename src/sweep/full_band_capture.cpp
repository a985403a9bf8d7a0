#include "sweep/full_band_capture.h"

#include <mutex>

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

void takeCapture(HXRDevice& device, const FullBandPlan& plan, float* iq) {
    const auto [complete, received] = device.link->request(plan.commands);
    const auto blocks = static_cast<std::size_t>(plan.blocks);
    for (std::size_t i = 0; i < blocks; ++i) takeBlock(received, i, iq + i * 2 * samplesPerBlock);
    if (!complete) return;
    const StatusRecord record({received.buffers[blocks], received.lengths[blocks]});
    parseStatus(device, &record);
}

}  // namespace

HXRStatus captureFullBand(HXRDevice& device, FullBandRequest request, float* iq) {
    if (device.sweepConfigured || device.streamConfigured) return hxrInvalidConfigurationErr;
    if (!inputLimits.contain(request.channel) || !attenuatorIndexLimits.contain(request.tuning.attenuator) ||
        !captureBlockLimits.contain(request.blocks)) {
        return hxrInvalidParameterErr;
    }
    double& loHz = request.tuning.loHz;
    const HXRStatus limited = request.reconfigure ? storeWithin(fullBandLoLimits, loHz, loHz) : hxrNoError;
    if (limited < 0) return limited;
    const std::unique_lock control(device.acquisitionMutex, std::try_to_lock);
    if (!control.owns_lock()) return hxrInvalidConfigurationErr;

    configureFullBand(device, request);
    takeCapture(device, *device.fullBandPlan, iq);
    const HXRStatus status = statusOfCapture(device, request.channel);
    return status == hxrNoError ? limited : status;
}

}  // namespace hxr
