#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "sim/capture.h"
#include "sim/sample_stream.h"
#include "sim/scene.h"
#include "sim/sync_line.h"
#include "sim/unit_calibration.h"
#include "sim/unit_state.h"

namespace hxr::sim {

/// What the samples of a stream are.
enum class StreamContent {
    scene,  ///< what each channel hears as it is tuned; without a scene silence
    silence,
    counter,  ///< as `SampleCounter` makes them
};

/// A unit at the moment when its stream starts.
struct StreamReception {
    UnitState state;
    std::shared_ptr<const Scene> scene{};
    UnitCalibration::Image image{};
    double temperature = 0.0;
    double timebaseRatio = 1.0;
};

/// Makes the samples of a running stream.
class StreamSamples {
  public:
    virtual ~StreamSamples() = default;
    /// @see SampleStream::Fill
    virtual std::uint32_t fill(std::size_t channel, std::uint64_t firstSample,
                               SampleStream::Payload payload) = 0;

    /// @param captures   kept from one stream to the next
    /// @param loopTurns  what is heard in so many turns repeats from then on; 0: it goes on
    static std::unique_ptr<StreamSamples> make(StreamContent content, const StreamReception& reception,
                                               const StreamStart& start, CaptureMaker& captures,
                                               std::size_t loopTurns);
};

}  // namespace hxr::sim
