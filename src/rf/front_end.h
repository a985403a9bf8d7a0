/// The words that set a channel's front end: preselector, attenuator, gain, offsets, signal path and capture input.
#pragma once

#include <array>
#include <cstdint>

#include "link/command_list.h"
#include "link/words.h"

namespace hxr {

/// The first of a channel's four DAC values: in a sweep or stream, and in a full-band capture.
inline constexpr std::uint32_t tunedFirstDacValue = 0x3333;
inline constexpr std::uint32_t fullBandFirstDacValue = 0;

/// What a tuning asks of a channel's front end.
struct FrontEnd {
    int channel;
    int band;
    int attenuatorDb;  ///< 0 to 30
    int gainCode;
    int loftI = 0, loftQ = 0;  ///< offsets that cancel the LO feed-through
    std::uint32_t firstDacValue = tunedFirstDacValue;
};

/// The eight words that load a channel's front end.
std::array<words::Word, 8> buildFrontEndImage(const FrontEnd& frontEnd);

/// The word that leads a channel's signal and LO through the routing switches.
/// @param fullBand  the LO comes from `sharedLo`
words::Word buildPathWord(int channel, int band, bool fullBand, double loHz);

/// Appends ten words that select what a capture is taken from, with their pauses.
/// @param fullBand  the capture is a full-band one
void appendInputSelect(CommandList& list, bool fullBand, int channel, int band);

/// Appends the words that make a channel's NCO move `offsetHz` to the middle of the captured band.
void appendNco(CommandList& list, int channel, double offsetHz);

/// The same for a stream. Channels that share their LO turn with one oscillator, which is set along.
void appendStreamNco(CommandList& list, int channel, double offsetHz, bool shared);

}  // namespace hxr
