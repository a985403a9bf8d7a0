/// A short capture of one channel's raw samples, outside any sweep or stream.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "cal/correction_state.h"
#include "cal/response_filter.h"
#include "link/command_list.h"
#include "rf/lo_context.h"

namespace hxr {

/// A capture as one packet of words, and what it brings: its blocks, then a status.
struct FullBandPlan {
    CommandList commands;
    int channel;
    int blocks;
};

/// How a channel is tuned for a capture.
struct FullBandTuning {
    bool sharedLo;
    double loHz;                       ///< 0 or more
    int attenuator;                    ///< index 0 to 6
    std::optional<ResponseTaps> taps;  ///< none: those that even the channel out
};

/// The channel that is captured.
struct FullBandChannel {
    LoContext& synthesizers;  ///< of its unit
    const CorrectionState& corrections;
    int channel;            ///< 0 to 3
    double delay;           ///< seconds
    std::int32_t lastBand;  ///< that it was last captured in
};

/// The band that a tuning captures in.
int bandOf(const FullBandTuning& tuning);

/// Plans a capture. The synthesizers' state changes only if all goes well.
///
/// @param tuning  null: the channel stays as it is
/// @param blocks  of 2048 samples, 1 to 255
/// @throws std::bad_alloc
std::unique_ptr<FullBandPlan> planFullBand(const FullBandChannel& captured, const FullBandTuning* tuning,
                                           int blocks);

}  // namespace hxr
