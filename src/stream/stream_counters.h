#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "device/published.h"
#include "device/settings.h"
#include "hxr_api.h"

namespace hxr {

/// What a stream has counted on one unit since its start.
struct UnitCounts {
    std::uint64_t datagrams = 0, contextPackets = 0, duplicates = 0, outOfOrder = 0, adcOverflows = 0;
    std::uint64_t frames = 0, framesLost = 0;
    std::uint64_t longestGapNs = 0;  ///< between two requests that were collected
    std::int64_t lastLoss = -1;      ///< position at the output rate, -1 for none
    std::uint64_t lastLossTime = 0;  ///< nanoseconds since 1970
};

/// What the ring of a stream has counted.
struct RingCounts {
    std::uint64_t overruns = 0;
    std::uint64_t discarded = 0;  ///< samples of each channel that overruns have discarded
    std::uint64_t peak = 0;       ///< most samples of a channel that were stored at a time
    std::int64_t lastOverrun =
        -1;  ///< position of the first sample that the last overrun discarded, -1 for none
    std::uint64_t lastOverrunTime = 0;  ///< its time in nanoseconds
};

/// The counts of a stream: written by its threads, a batch at a time, read by any. They outlive the stream.
struct StreamCounters {
    std::array<Published<UnitCounts>, mostUnits> units;
    Published<RingCounts> ring;
};

/// The statistics of the unit at a position of the group.
HXRStreamStatistics statisticsOf(const StreamCounters& counters, std::size_t position);

}  // namespace hxr
