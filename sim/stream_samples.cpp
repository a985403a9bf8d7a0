#include "sim/stream_samples.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>
#include <vector>

#include "sim/capture_settings.h"

namespace hxr::sim {
namespace {

class Silence : public StreamSamples {
  public:
    std::uint32_t fill(std::size_t, std::uint64_t, SampleStream::Payload payload) override {
        std::fill(payload.begin(), payload.end(), std::uint8_t{0});
        return 0;
    }
};

class Counter : public StreamSamples {
  public:
    std::uint32_t fill(std::size_t channel, std::uint64_t firstSample,
                       SampleStream::Payload payload) override {
        SampleCounter::put(channel, firstSample, payload);
        return 0;
    }
};

class Heard : public StreamSamples {
  public:
    Heard(const StreamReception& reception, const StreamStart& start, CaptureMaker& captures)
        : scene_(reception.scene),
          firstSample_(start.firstSample),
          decimation_(streamDecimation(reception.state)) {
        for (std::size_t channel = 0; channel < channelCount; ++channel) {
            if ((reception.state.route >> channel & 1) == 0) continue;
            const CaptureSettings settings =
                streamSettings(reception.state, channel, start.timebaseRatio, start.sharedLoHz);
            paths_.emplace(channel, captures.make(settings, reception.image, reception.temperature, *scene_));
        }
    }

    std::uint32_t fill(std::size_t channel, std::uint64_t firstSample,
                       SampleStream::Payload payload) override {
        const auto sample = firstSample_ + static_cast<std::int64_t>(firstSample * decimation_);
        const bool clipped = paths_.at(channel).take(sample, payload);
        lowerMarker(payload);
        return clipped ? StreamWarning::overRange : 0;
    }

  private:
    std::shared_ptr<const Scene> scene_;
    std::int64_t firstSample_;
    std::uint64_t decimation_;
    std::map<std::size_t, CapturePath> paths_;
};

/// The first turns of a stream, again and again.
class Loop : public StreamSamples {
  public:
    Loop(StreamSamples& origin, std::uint16_t enabled, std::size_t turns) : turns_(turns) {
        for (std::size_t channel = 0; channel < packets_.size(); ++channel) {
            if ((enabled >> channel & 1) == 0) continue;
            packets_[channel].resize(turns);
            for (std::size_t turn = 0; turn < turns; ++turn) {
                Packet& packet = packets_[channel][turn];
                packet.trailer = origin.fill(channel, turn * SampleStream::samplesPerPacket, packet.payload);
            }
        }
    }

    std::uint32_t fill(std::size_t channel, std::uint64_t firstSample,
                       SampleStream::Payload payload) override {
        const Packet& packet = packets_[channel][firstSample / SampleStream::samplesPerPacket % turns_];
        std::copy(packet.payload.begin(), packet.payload.end(), payload.begin());
        return packet.trailer;
    }

  private:
    struct Packet {
        std::uint32_t trailer = 0;
        std::array<std::uint8_t, dataPayloadBytes> payload{};
    };

    std::size_t turns_;
    std::array<std::vector<Packet>, channelCount> packets_;
};

}  // namespace

std::unique_ptr<StreamSamples> StreamSamples::make(StreamContent content, const StreamReception& reception,
                                                   const StreamStart& start, CaptureMaker& captures,
                                                   std::size_t loopTurns) {
    if (content == StreamContent::counter) return std::make_unique<Counter>();
    if (content == StreamContent::silence || !reception.scene) return std::make_unique<Silence>();
    auto heard = std::make_unique<Heard>(reception, start, captures);
    if (loopTurns == 0) return heard;
    return std::make_unique<Loop>(*heard, reception.state.route, loopTurns);
}

}  // namespace hxr::sim
