#include "rf/full_band_plan.h"

#include "cal/correction_lookup.h"
#include "link/builders.h"
#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/frequency_grid.h"
#include "rf/front_end.h"
#include "rf/shared_lo.h"

namespace hxr {
namespace {

void appendPause(CommandList& list, words::Word pause) {
    list.append({pause, words::noOperation, words::noOperation});
}

void appendTuning(CommandList& list, const FullBandChannel& captured, const FullBandTuning& tuning) {
    constexpr int dbPerAttenuatorStep = 5;
    constexpr double bandChangeMicroseconds = 500.0;
    const auto& [synthesizers, corrections, channel, delay, lastBand] = captured;
    const int band = bandOf(tuning);
    const int k = frequencyIndexFor(tuning.loHz);

    list.append(words::fullBandRoute(channel));
    const ResponseTaps taps = tuning.taps
                                  ? *tuning.taps
                                  : buildResponseFilter(corrections, tuning.sharedLo, channel, delay, k).taps;
    appendRegisterBlock(list, tapBlockAddress(channel), tapBlock(taps));
    if (tuning.sharedLo) list.append(tuneSharedLo(synthesizers, band, tuning.loHz));

    const LoftPair loft = lookupLoft(corrections, channel, k);
    list.append(buildFrontEndImage({.channel = channel,
                                    .band = band,
                                    .attenuatorDb = dbPerAttenuatorStep * tuning.attenuator,
                                    .gainCode = lookupGainCode(corrections, channel, k),
                                    .loftI = loft.i,
                                    .loftQ = loft.q,
                                    .firstDacValue = fullBandFirstDacValue}));
    // On the shared LO a `highLo` that isn't needed is parked above all signals.
    list.append(retuneChannelLo(synthesizers, channel, band, tuning.loHz, tuning.sharedLo,
                                tuning.sharedLo ? IdleHighLo::parked : IdleHighLo::off));
    list.append(words::applyPeripherals);
    appendInputSelect(list, tuning.sharedLo, channel, band);
    if (band != lastBand) appendPause(list, words::pause(words::pauseTicks(bandChangeMicroseconds)));
}

}  // namespace

int bandOf(const FullBandTuning& tuning) {
    return bandForFrequency(static_cast<float>(tuning.loHz - ifOffsetHz));
}

std::unique_ptr<FullBandPlan> planFullBand(const FullBandChannel& captured, const FullBandTuning* tuning,
                                           int blocks) {
    return planWhole(captured.synthesizers, [&] {
        CommandList list;
        list.beginPacket();
        if (tuning != nullptr) appendTuning(list, captured, *tuning);
        list.append(words::captureAndSend(static_cast<std::uint32_t>(blocks)));
        appendPause(list, words::capturePause(1000));
        list.append(words::statusRequest);
        list.expectData(static_cast<std::uint32_t>(blocks));
        list.expectStatus(1);
        return std::make_unique<FullBandPlan>(FullBandPlan{std::move(list), captured.channel, blocks});
    });
}

}  // namespace hxr
