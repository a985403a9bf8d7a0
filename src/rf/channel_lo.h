/// The synthesizers of a channel: `lowLo` for bands 1 to 16, `highLo` above.
///
/// Builders compute words and send nothing; none can fail. A channel is 0 to 3, frequencies are those of the LO.
#pragma once

#include <vector>

#include "link/words.h"
#include "rf/lo_context.h"

namespace hxr {

/// Words that go into a packet together.
using WordRun = std::vector<words::Word>;

/// Where `highLo` goes while a channel uses another LO: beyond all signals.
inline constexpr double parkedHighLoHz = 21e9;

/// Whether an idle `highLo` is switched off, or parked above the receiver's range.
enum class IdleHighLo { off, parked };

/// Loads a `lowLo` whole: 60 words, after which it can be tuned.
WordRun buildLowLoImage(LoContext& context, int channel);

/// Tunes a channel on its own LO. In band 0 the `lowLo` is reset and nothing else; above band 16 it is reset and
/// `highLo` tuned. Either loses the image of the `lowLo`.
WordRun buildLowLoTune(LoContext& context, int channel, int band, double hz, IdleHighLo idle);

/// Loads a `highLo` whole: 112 words.
WordRun buildHighLoImage(int channel);

/// Tunes a `highLo` on its own reference.
WordRun buildHighLoTune(const LoContext& context, int channel, double hz);

/// Locks a `highLo` on the reference that `sharedLo` delivers: a sixteenth of `hz`, above 10 GHz a thirty-second.
WordRun buildHighLoFollow(const LoContext& context, int channel, double hz);

/// Tunes a channel, path included.
/// @param fullBand  the channel takes its LO from `sharedLo`, which is tuned separately
WordRun retuneChannelLo(LoContext& context, int channel, int band, double hz, bool fullBand, IdleHighLo idle);

}  // namespace hxr
