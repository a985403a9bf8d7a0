#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "sim/phase.h"
#include "sim/recording_file.h"
#include "sim/resampler.h"
#include "sim/scene.h"

namespace hxr::sim {

/// A recording that is played on the air, again and again or once.
///
/// Each stretch is brought to the capture's rate when it is heard, from the few samples that it needs: a
/// recording of any length costs no time to load and no memory. Of one faster than 50 MS/s the 50 MHz
/// nearest to the stretch are heard.
class RecordingSource : public Source {
  public:
    /// @param hz        where what is at 0 Hz in the recording goes
    /// @param dbm       level of its full scale, an amplitude of 1.0
    /// @param onceFrom  the sample, counted from 1970, with which it begins to play once. Otherwise it repeats
    ///                  without a gap, as it has done since 1970.
    RecordingSource(std::unique_ptr<const RecordedSamples> recording, double hz, double dbm,
                    std::optional<std::int64_t> onceFrom = {});
    RecordingSource(RecordingFile file, double hz, double dbm, std::optional<std::int64_t> onceFrom = {});

    double centreHz() const override { return hz_; }
    double reachHz() const override { return 0.5 * recording_->rateHz(); }
    bool wide() const override;
    void addTo(Baseband samples, const Stretch& stretch, std::complex<double> gain) const override;

  private:
    /// A place in the recording.
    struct Place {
        std::int64_t sample;
        double fraction;
    };

    Place placeAt(std::int64_t captureSample) const;
    /// Whether any of these samples of the recording are to be heard.
    bool plays(std::int64_t first, std::size_t count) const;
    void gather(std::int64_t first, Baseband out) const;

    std::unique_ptr<const RecordedSamples> recording_;
    Resampler resampler_;
    double hz_;
    Turns perSample_;
    double amplitude_;
    std::optional<std::int64_t> onceFrom_;
};

}  // namespace hxr::sim
