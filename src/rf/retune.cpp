#include "rf/band_plan.h"
#include "rf/channel_lo.h"
#include "rf/front_end.h"
#include "rf/synthesizer_words.h"

namespace hxr {
namespace {

constexpr double parkedFollowHz = 5e10;  // the top of its table

WordRun shareLo(LoContext& context, int channel, int band, double hz, IdleHighLo idle) {
    context.lowLoReady[static_cast<std::size_t>(channel)] = false;
    WordRun run{words::synthesizerReset(words::lowLoOf(channel))};
    if (isHighBand(band)) {
        for (int pass = 0; pass < 2; ++pass) appendRun(run, buildHighLoFollow(context, channel, hz));
    } else if (idle == IdleHighLo::parked) {
        appendRun(run, buildHighLoFollow(context, channel, parkedFollowHz));
    } else {
        run.push_back(words::highLoOff(channel));
    }
    return run;
}

WordRun tuneOwnLo(LoContext& context, int channel, int band, double hz, IdleHighLo idle) {
    bool& ready = context.lowLoReady[static_cast<std::size_t>(channel)];
    WordRun run;
    if (isHighBand(band)) {
        if (ready) run.push_back(words::synthesizerReset(words::lowLoOf(channel)));
        ready = false;
    } else if (!ready) {
        run = buildLowLoImage(context, channel);
    }
    appendRun(run, buildLowLoTune(context, channel, band, hz, idle));
    return run;
}

}  // namespace

WordRun retuneChannelLo(LoContext& context, int channel, int band, double hz, bool fullBand,
                        IdleHighLo idle) {
    WordRun run{buildPathWord(channel, band, fullBand, hz)};
    appendRun(run, fullBand ? shareLo(context, channel, band, hz, idle)
                            : tuneOwnLo(context, channel, band, hz, idle));
    return run;
}

}  // namespace hxr
