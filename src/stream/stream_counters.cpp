#include "stream/stream_counters.h"

#include "stream/stream_layout.h"

namespace hxr {

HXRStreamStatistics statisticsOf(const StreamCounters& counters, std::size_t position) {
    const UnitCounts unit = counters.units[position].copy();
    const RingCounts ring = counters.ring.copy();
    const bool overrunIsLast = ring.lastOverrun > unit.lastLoss;
    const std::int64_t lastLoss = overrunIsLast ? ring.lastOverrun : unit.lastLoss;
    return {.size = sizeof(HXRStreamStatistics),
            .datagrams = unit.datagrams,
            .contextPackets = unit.contextPackets,
            .samples = unit.frames * samplesPerPacket,
            .duplicates = unit.duplicates,
            .outOfOrder = unit.outOfOrder,
            .samplesLost = unit.framesLost * samplesPerPacket,
            .samplesDiscarded = ring.discarded,
            .overruns = ring.overruns,
            .adcOverflows = unit.adcOverflows,
            .ringPeak = ring.peak,
            .longestGapNs = unit.longestGapNs,
            .lastLossPosition = static_cast<std::uint64_t>(lastLoss),  // all ones for none
            .lastLossTime = overrunIsLast ? ring.lastOverrunTime : unit.lastLossTime};
}

}  // namespace hxr
