#include "stream/stream_engine.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "device/group_access.h"
#include "dsp/fir.h"
#include "platform/thread.h"
#include "rf/frequency_grid.h"
#include "stream/filter_design.h"
#include "stream/frame_batch.h"
#include "stream/sample_ring.h"
#include "stream/start_sequence.h"
#include "stream/stream_counters.h"
#include "stream/stream_plan.h"

namespace hxr {
namespace {

/// What the packets and the links have warned of since the application was last told.
struct Warnings {
    std::atomic<bool> adcOverflow = false, sampleLoss = false;  // told once
    std::atomic<bool> ddrOverflow = false, linkLost = false;    // told for the stream's life
};

/// The host's filter and sample-down of all channels of a unit.
class HostDecimation {
  public:
    HostDecimation(const StreamSettings& settings, std::size_t channels)
        : factor_(settings.hostDecimation),
          samplesPerFrame_(static_cast<std::size_t>(samplesPerPacket / factor_)),
          decimated_(platform::makeAlignedArray<cf32>(channels * FrameBatch::mostFrames * samplesPerFrame_)) {
        const std::vector<cf32> taps =
            designHostTaps(settings.outputBandwidth, settings.hardwareDecimation, settings.hostDecimation);
        filters_.reserve(channels);
        for (std::size_t i = 0; i < channels; ++i)
            filters_.emplace_back(taps.data(), static_cast<int>(taps.size()), factor_, samplesPerPacket);
    }

    /// Samples at the hardware rate by which the filter's outputs are late.
    int delay() const { return factor_ * 32; }
    int factor() const { return factor_; }
    std::size_t samplesPerFrame() const { return samplesPerFrame_; }

    const cf32* decimate(std::size_t channel, std::size_t frame, const ci16* samples) {
        cf32* const out = decimated_.get() + (channel * FrameBatch::mostFrames + frame) * samplesPerFrame_;
        filters_[channel].process(samples, samplesPerPacket, out);
        return out;
    }

    /// Forgets the samples ahead of a gap.
    void restart() {
        for (FirDecimator& filter : filters_) filter.reset();
    }

  private:
    int factor_;
    std::size_t samplesPerFrame_;
    std::vector<FirDecimator> filters_;
    platform::AlignedArray<cf32> decimated_;  ///< by channel, then frame
};

/// One unit's share of a stream: from its data endpoint into the ring.
class UnitStream {
  public:
    struct Place {
        const StreamLayout& layout;
        std::size_t unit;
    };

    UnitStream(const UnitAccess& access, const Place& place, const Settings& settings, StreamLists lists,
               SampleRing& ring, Warnings& warnings, StreamCounters& counters)
        : link_(*access.device->link),
          data_(*access.data),
          unit_(place.unit),
          channels_(place.layout.channelsOfUnit[place.unit]),
          hardwareNs_(1e9 / (captureRateHz / settings.hardwareDecimation)),
          lists_(std::move(lists)),
          ring_(ring),
          warnings_(warnings),
          counters_(counters),
          assembler_(identifiersOf(place, settings), settings.hardwareDecimation) {
        if (unit_ == place.layout.clockUnit) triggers_.emplace(settings.streamTriggerEdge == 0 ? 1 : -1);
        if (settings.hostDecimation > 1) decimation_.emplace(settings, channels_);
        request_[0] = words::streamRequest(static_cast<std::uint16_t>(requestPackets()));
    }

    /// Configures and starts the unit in its turn.
    /// @return false if the stream was given up meanwhile
    bool start(const UnitAccess& access, StartSequence& sequence) {
        const bool master = unit_ == 0;
        StatusRecord answer;  // its coming tells that a list has been run
        if (!sequence.beforeConfiguring(master)) return false;
        if (sendConfiguration(access, lists_)) link_.readStatus(access.control, &answer);
        if (!sequence.beforeStarting(master)) return false;
        if (link_.sendList(access.control, lists_.start)) link_.readStatus(access.control, &answer);
        sequence.afterStarting(master);
        return true;
    }

    /// Brings samples until it is told to stop, or until the link is lost.
    void run(const std::atomic<bool>& running) {
        if (channels_ == 0) return;
        if (link_.lastStatus() != hxrNoError) {
            // The unit was not told to start.
            loseLink();
            ring_.end();
            return;
        }
        data_.discardArrived();  // what an earlier stream has left
        for (int slot = 0; slot < requestsUnderWay; ++slot) request(slot);
        int slot = 0;
        lastCollected_ = std::chrono::steady_clock::now();
        for (; running; slot = (slot + 1) % requestsUnderWay) {
            ReceiveResult& received = *collect(slot);
            if (received.timedOut) {
                loseLink();
                processBatch(received);
                ring_.end();
                return;
            }
            processBatch(received);
            request(slot);
        }
        for (int i = 0; i < requestsUnderWay; ++i, slot = (slot + 1) % requestsUnderWay) {
            if (!collect(slot)->timedOut) continue;
            link_.loseLink();
            return;  // nothing can come any more
        }
    }

  private:
    static constexpr int requestsUnderWay = 8;
    static constexpr unsigned timeoutMs = 2000;

    /// The stream identifiers of the unit's streaming channels.
    static std::vector<std::uint32_t> identifiersOf(const Place& place, const Settings& settings) {
        std::vector<std::uint32_t> identifiers;
        const std::size_t first = place.layout.firstChannelOfUnit[place.unit];
        for (std::size_t i = first; i < first + place.layout.channelsOfUnit[place.unit]; ++i)
            identifiers.push_back(
                static_cast<std::uint32_t>(settings.vrtStreamId[place.layout.groupChannel[i]]));
        return identifiers;
    }

    int requestPackets() const { return framesPerRequest * static_cast<int>(channels_); }

    void request(int slot) {
        data_.postReceives(slot, requestPackets(), timeoutMs);
        data_.send(slot, request_.data());
    }

    ReceiveResult* collect(int slot) {
        ReceiveResult* const received = data_.collectReceives(slot);
        data_.waitSend(slot);
        return received;
    }

    void loseLink() {
        link_.loseLink();
        warnings_.linkLost = true;
    }

    void processBatch(ReceiveResult& received) {
        assembler_.read(received, batch_);
        const auto trigger = triggers_ ? triggers_->find(batch_) : std::nullopt;
        for (std::size_t first = 0; first < batch_.frames;) {
            std::size_t end = first + 1;
            while (end < batch_.frames && batch_.number[end] == batch_.number[end - 1] + 1) ++end;
            pushRun(first, end, trigger);
            first = end;
        }
        if (batch_.ddrOverflow) warnings_.ddrOverflow = true;
        if (batch_.adcOverflow) warnings_.adcOverflow = true;
        if (batch_.sampleLoss) warnings_.sampleLoss = true;
        count();
    }

    /// Stores frames that follow each other without a gap.
    void pushRun(std::size_t first, std::size_t end, const std::optional<TriggerFinder::Place>& trigger) {
        if (decimation_ && batch_.number[first] != nextNumber_) decimation_->restart();
        nextNumber_ = batch_.number[end - 1] + 1;
        SampleRing::Blocks blocks{.position = batch_.number[first] * samplesPerFrame(),
                                  .frames = end - first,
                                  .samplesPerFrame = static_cast<std::size_t>(samplesPerFrame()),
                                  .time = batch_.time[first]};
        if (trigger && trigger->frame >= first && trigger->frame < end)
            blocks.trigger = static_cast<double>(trigger->frame - first) * samplesPerPacket + trigger->sample;
        for (std::size_t channel = 0; channel < channels_; ++channel) {
            for (std::size_t frame = first; frame < end; ++frame) {
                const ci16* const samples = batch_.samples[channel][frame];
                stored_[channel][frame] =
                    decimation_ ? static_cast<const void*>(decimation_->decimate(channel, frame, samples))
                                : samples;
            }
            blocks.of[channel] = std::span(stored_[channel]).subspan(first, end - first);
        }
        if (decimation_) takeOffDelay(blocks);
        ring_.push(unit_, blocks);
    }

    /// The host's filter lets samples out later than they came in.
    void takeOffDelay(SampleRing::Blocks& blocks) const {
        const int delay = decimation_->delay();
        blocks.time -= static_cast<std::uint64_t>(hardwareNs_ * delay);
        if (blocks.trigger) blocks.trigger = (*blocks.trigger + delay) / decimation_->factor();
    }

    std::int64_t samplesPerFrame() const {
        return decimation_ ? static_cast<std::int64_t>(decimation_->samplesPerFrame()) : samplesPerPacket;
    }

    /// Adds a batch to the stream's statistics.
    void count() {
        const auto now = std::chrono::steady_clock::now();
        const auto waited = std::chrono::nanoseconds(now - std::exchange(lastCollected_, now));
        counters_.units[unit_].update([&](UnitCounts& counts) {
            counts.datagrams += batch_.datagrams;
            counts.contextPackets += batch_.contextPackets;
            counts.duplicates += batch_.duplicates;
            counts.outOfOrder += batch_.outOfOrder;
            counts.adcOverflows += batch_.adcOverflows;
            counts.frames += batch_.frames;
            counts.framesLost += batch_.framesLost;
            counts.longestGapNs = std::max(counts.longestGapNs, static_cast<std::uint64_t>(waited.count()));
            if (batch_.lastLoss < 0) return;
            counts.lastLoss = batch_.lastLoss * samplesPerFrame();
            counts.lastLossTime = batch_.lastLossTime;
        });
        counters_.ring.update([&](RingCounts& counts) { counts = ring_.counts(); });
    }

    DeviceInterface& link_;
    UDPDevice& data_;
    const std::size_t unit_;  ///< position in the group
    const std::size_t channels_;
    const double hardwareNs_;  ///< of a sample as the unit sends it
    const StreamLists lists_;
    SampleRing& ring_;
    Warnings& warnings_;
    StreamCounters& counters_;
    FrameAssembler assembler_;
    std::optional<TriggerFinder> triggers_;
    std::optional<HostDecimation> decimation_;
    std::array<std::uint32_t, wordsPerPacket> request_{};
    FrameBatch batch_;
    std::int64_t nextNumber_ = 0;  ///< of the frame that follows without a gap
    std::chrono::steady_clock::time_point lastCollected_;
    std::array<std::array<const void*, FrameBatch::mostFrames>, words::channelsPerUnit> stored_{};
};

}  // namespace

/// A stream with all that runs it.
class StreamEngine::Run {
  public:
    Run(std::span<const UnitAccess> group, const Settings& settings, std::vector<StreamLists> lists)
        : layout_(settings),
          parameters{static_cast<int>(layout_.channelCount), captureRateHz / settings.decimation,
                     settings.outputBandwidth},
          ring_(layout_, settings.hostDecimation > 1, 1e9 / parameters.sampleRate),
          start_(layout_.unitCount) {
        format_.floats = settings.streamDataType == 1;
        for (std::size_t i = 0; i < layout_.channelCount; ++i) {
            const double factor = settings.streamCorrection[layout_.groupChannel[i]];
            format_.scale[i] = settings.streamFullScale ? 1.0F : static_cast<float>(factor);
        }
        for (std::size_t u = 0; u < group.size(); ++u) {
            streams_.push_back(std::make_unique<UnitStream>(group[u], UnitStream::Place{layout_, u}, settings,
                                                            std::move(lists[u]), ring_, warnings_,
                                                            *counters));
        }
        try {
            for (std::size_t u = 0; u < group.size(); ++u) {
                threads_[u] = platform::Thread("Stream Thread", platform::ThreadPriority::timeCritical,
                                               [this, u, &access = group[u]] {
                                                   if (streams_[u]->start(access, start_))
                                                       streams_[u]->run(running_);
                                               });
            }
        } catch (...) {
            start_.giveUp();
            throw;  // the threads join first
        }
        start_.awaitAll();
    }

    ~Run() { stop(); }

    void stop() {
        stopped_ = true;
        running_ = false;
        ring_.end();
        for (platform::Thread& thread : threads_) thread.join();
    }

    HXRStatus receive(const Request& request);

  private:
    HXRStatus receiveAlone(const Request& request);

    const StreamLayout layout_;

  public:
    const Parameters parameters;
    const std::shared_ptr<StreamCounters> counters = std::make_shared<StreamCounters>();

  private:
    void deliverSilence(const Request& request, std::int64_t from) const;

    SampleRing ring_;
    SampleFormat format_;
    Warnings warnings_;
    StartSequence start_;
    std::vector<std::unique_ptr<UnitStream>> streams_;
    std::atomic<bool> running_ = true, stopped_ = false;
    std::atomic_flag receiving_;  ///< a thread is in `receive`
    std::array<platform::Thread, mostUnits> threads_;
};

HXRStatus StreamEngine::Run::receive(const Request& request) {
    if (receiving_.test_and_set()) return hxrInvalidConfigurationErr;
    const HXRStatus status = receiveAlone(request);
    receiving_.clear();
    return stopped_ ? hxrInvalidConfigurationErr : status;
}

HXRStatus StreamEngine::Run::receiveAlone(const Request& request) {
    if (request.purge) {
        warnings_.adcOverflow = warnings_.sampleLoss = false;
        ring_.purge();
    }
    const std::span triggers(request.triggers, static_cast<std::size_t>(request.triggerRoom));
    std::size_t found = 0;
    std::int64_t collected = 0;
    while (collected < request.count && !stopped_ && ring_.waitForSamples()) {
        const SampleRing::Destination destination{{request.buffers, layout_.channelCount}, collected};
        const auto pulled =
            ring_.pull(request.count - collected, format_, destination, triggers.subspan(found));
        if (collected == 0 && request.nanoseconds != nullptr) *request.nanoseconds = pulled.time;
        for (double& position : triggers.subspan(found, pulled.triggers))
            position += static_cast<double>(collected);
        found += pulled.triggers;
        collected += pulled.samples;
    }
    std::ranges::fill(triggers.subspan(found), -1.0);
    if (request.samplesRemaining != nullptr) *request.samplesRemaining = static_cast<int>(ring_.available());
    if (request.sampleLoss != nullptr) *request.sampleLoss = ring_.takeOverflow() ? 1 : 0;

    const bool adcOverflow = warnings_.adcOverflow.exchange(false);
    const bool sampleLoss = warnings_.sampleLoss.exchange(false);
    if (collected < request.count) {
        deliverSilence(request, collected);
        return hxrConnectionLostErr;
    }
    if (warnings_.ddrOverflow) return hxrDDRBufferOverflow;
    if (warnings_.linkLost) return hxrConnectionLostErr;
    if (sampleLoss) return hxrUncalData;
    return adcOverflow ? hxrADCOverflow : hxrNoError;
}

/// What was asked for and never came.
void StreamEngine::Run::deliverSilence(const Request& request, std::int64_t from) const {
    const std::size_t sampleBytes = format_.floats ? sizeof(cf32) : sizeof(ci16);
    for (std::size_t channel = 0; channel < layout_.channelCount; ++channel) {
        auto* const buffer = static_cast<std::byte*>(request.buffers[channel]);
        std::memset(buffer + static_cast<std::size_t>(from) * sampleBytes, 0,
                    static_cast<std::size_t>(request.count - from) * sampleBytes);
    }
}

StreamEngine::StreamEngine(std::span<const UnitAccess> group, const Settings& settings,
                           std::vector<StreamLists> lists)
    : run_(std::make_unique<Run>(group, settings, std::move(lists))) {}

StreamEngine::~StreamEngine() = default;

const StreamEngine::Parameters& StreamEngine::parameters() const { return run_->parameters; }

std::shared_ptr<const StreamCounters> StreamEngine::counters() const { return run_->counters; }

HXRStatus StreamEngine::receive(const Request& request) { return run_->receive(request); }

void StreamEngine::stop() { run_->stop(); }

}  // namespace hxr
