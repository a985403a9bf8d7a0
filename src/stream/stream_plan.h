/// From settings to a stream: what the units of a group must do to send the samples of their channels.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "cal/correction_state.h"
#include "device/settings.h"
#include "link/command_list.h"
#include "link/status_record.h"
#include "rf/lo_context.h"
#include "stream/filter_design.h"

namespace hxr {

/// What one unit of a group is told: all tunings and filters, then a word that starts the samples.
struct StreamLists {
    CommandList config;
    CommandList start;
    bool seedsTime = false;  ///< `config` sets the unit's date and time
};

/// One unit of a group whose stream is planned.
struct UnitToPlan {
    LoContext& synthesizers;  ///< as the list leaves them
    const CorrectionState& corrections;
    std::uint16_t port;                    ///< of this host, for its samples
    std::optional<StatusRecord> timeSeed;  ///< whose GPS fix the date and time registers are set to
};

/// Plans the stream of a group, for each of its units in order. Limits `hardwareBandwidth` and `outputBandwidth` to what
/// the rates carry and writes `streamCorrection`.
/// @throws std::bad_alloc
std::vector<StreamLists> planStream(Settings& settings, std::span<const UnitToPlan> units);

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
