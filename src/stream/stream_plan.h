/// From settings to a stream: what the units of a group must do to send the samples of their channels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "device/hxr_device.h"
#include "link/command_list.h"
#include "stream/filter_design.h"

namespace hxr {

/// What one unit of a group is told: all tunings and filters, then a word that starts the samples.
struct StreamLists {
    CommandList config;
    CommandList start;
};

/// Plans the stream of a group, for each of its units in order. Limits the master's `hardwareBandwidth` and
/// `outputBandwidth` to what the rates carry and writes its `streamCorrection`. A unit whose date and time nobody has set
/// is asked for a status record.
/// @throws std::bad_alloc
std::vector<StreamLists> planStream(HXRDevice& master);

/// Appends the block that loads the receiver's decimation filter: the first half of its taps and the middle one, as
/// integers of which all 189 sum up to 2^19.
void uploadDecimationFilter(CommandList& list, std::span<const double, decimationTaps> taps);

/// What a channel's context packets tell of it.
struct ContextFields {
    double bandwidth;         ///< Hz
    double frequency;         ///< Hz
    double referenceLevelDb;  ///< level correction
    double gainDb;
    double sampleRate;  ///< Hz
};

/// Appends the block that fills in a channel's context packets.
/// @param channel  0 to 3
void appendContextFields(CommandList& list, int channel, const ContextFields& fields);

}  // namespace hxr
