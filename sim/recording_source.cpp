#include "sim/recording_source.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "sim/placement.h"
#include "sim/rotation.h"
#include "sim/sources.h"

namespace hxr::sim {

RecordingSource::RecordingSource(std::unique_ptr<const RecordedSamples> recording, double hz, double dbm,
                                 std::optional<std::int64_t> onceFrom)
    : recording_(std::move(recording)),
      resampler_(recording_->rateHz()),
      hz_(hz),
      perSample_(turnsPerSample(hz)),
      amplitude_(amplitudeOf(dbm)),
      onceFrom_(onceFrom) {}

RecordingSource::RecordingSource(RecordingFile file, double hz, double dbm,
                                 std::optional<std::int64_t> onceFrom)
    : RecordingSource(std::make_unique<const RecordingFile>(std::move(file)), hz, dbm, onceFrom) {}

bool RecordingSource::wide() const {
    constexpr double narrowHz = 200e3;
    return recording_->rateHz() > narrowHz;
}

void RecordingSource::addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const {
    // What lies at this frequency in the recording becomes the middle of the 50 MHz that are taken from it.
    constexpr double halfCaptureHz = 0.5 * captureRateHz;
    const double offsetHz = hz_ - stretch.centreHz;
    const double spareHz = std::max(0.0, reachHz() - halfCaptureHz);
    const double middleHz = std::clamp(-offsetHz, -spareHz, spareHz);
    const Placement placement(offsetHz + middleHz, std::min(reachHz(), halfCaptureHz));
    if (!placement.visible()) return;

    const std::size_t margin = placement.margin();
    const std::size_t count = samples.size() + 2 * margin;
    const Place place = placeAt(stretch.firstSample - static_cast<std::int64_t>(margin));
    const std::int64_t first = place.sample - static_cast<std::int64_t>(resampler_.tapsAhead());
    const std::size_t needed = resampler_.needed(count);
    if (!plays(first, needed)) return;
    std::vector<float> inI(needed), inQ(needed);
    const Baseband in{inI, inQ};
    gather(first, in);

    // Both turns, to the middle and back, are 0 at the first sample that comes out.
    const Turns back = turnsPerSample(middleHz);
    if (middleHz != 0.0) {
        const double ahead = static_cast<double>(resampler_.tapsAhead()) + place.fraction;
        const double perSample = middleHz / recording_->rateHz();
        rotate(in, {turns(perSample * ahead), turns(-perSample)});
    }
    std::vector<float> bandI(count), bandQ(count);
    resampler_.resample({bandI, bandQ}, in, place.fraction);

    const Turns toPlace = perSample_ - turnsPerSample(stretch.centreHz);
    const Turns phase =
        phaseAt(toPlace, stretch.firstSample) + phaseAt(back, static_cast<std::int64_t>(margin));
    placement.add(samples, {bandI, bandQ}, {phase, toPlace + back, amplitude_ * gain});
}

RecordingSource::Place RecordingSource::placeAt(std::int64_t captureSample) const {
    if (!onceFrom_) {
        const Turns perSample = turns(resampler_.step() / static_cast<double>(recording_->size()));
        const LoopPlace place = loopPlaceAt(phaseAt(perSample, captureSample), recording_->size());
        return {static_cast<std::int64_t>(place.whole), place.fraction};
    }
    const double place = static_cast<double>(captureSample - *onceFrom_) * resampler_.step();
    const double whole = std::floor(place);
    return {static_cast<std::int64_t>(whole), place - whole};
}

bool RecordingSource::plays(std::int64_t first, std::size_t count) const {
    return !onceFrom_ || (first < static_cast<std::int64_t>(recording_->size()) &&
                          first + static_cast<std::int64_t>(count) > 0);
}

/// Reads samples that may lie beyond either end of the recording.
void RecordingSource::gather(std::int64_t first, Baseband out) const {
    const auto length = static_cast<std::int64_t>(recording_->size());
    if (onceFrom_) {
        const std::int64_t from = std::max<std::int64_t>(first, 0);
        const std::int64_t to = std::min(first + static_cast<std::int64_t>(out.size()), length);
        recording_->read(static_cast<std::uint64_t>(from), out.part(static_cast<std::size_t>(from - first),
                                                                    static_cast<std::size_t>(to - from)));
        return;
    }
    // Once through the recording at most, in up to two pieces; then it is the same again.
    const std::int64_t begin = (first % length + length) % length;
    const auto period = std::min(out.size(), static_cast<std::size_t>(length));
    const auto toEnd = std::min(period, static_cast<std::size_t>(length - begin));
    recording_->read(static_cast<std::uint64_t>(begin), out.part(0, toEnd));
    recording_->read(0, out.part(toEnd, period - toEnd));
    for (std::size_t n = period; n < out.size(); ++n) {
        out.i[n] = out.i[n - period];
        out.q[n] = out.q[n - period];
    }
}

}  // namespace hxr::sim
