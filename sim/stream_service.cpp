#include "sim/stream_service.h"

#include <algorithm>
#include <limits>
#include <ratio>
#include <utility>

#include "sim/phase.h"
#include "sim/tuning.h"

namespace hxr::sim {
namespace {

using WallClock = std::chrono::system_clock;
/// One of 50 million a second.
using SampleTime =
    std::chrono::duration<std::int64_t, std::ratio<1, static_cast<std::intmax_t>(captureRateHz)>>;

/// Datagrams that leave in one go; two blocks of what the system cuts up.
constexpr std::size_t batchDatagrams = 14;
/// After so many the unit looks at its sockets again.
constexpr int batchesAtOnce = 8;
/// A unit in real time collects turns for so long, rather than wake up for each.
constexpr std::chrono::microseconds collectingTime{330};
/// How often a slave looks whether its master has started.
constexpr std::chrono::microseconds lookTime{500};

/// What a start word tells: the group timing plus 1.
constexpr std::uint8_t aloneStart = 1;
constexpr std::uint8_t masterStart = 0xA3;

}  // namespace

StreamService::StreamService(StreamSetup setup, RuleBook& rules, Recording& recording, ReplyPath& replies)
    : setup_(std::move(setup)),
      rules_(rules),
      recording_(recording),
      replies_(replies),
      batches_(StreamDestination::slots, DatagramBatch(batchDatagrams)) {}

void StreamService::start(StreamReception reception, const ContextReport& report, UdpSocket& socket) {
    stop();
    const UnitState& state = reception.state;
    report_ = report;
    if (state.stream.port == 0) {
        for (std::size_t slot = 0; slot < StreamDestination::slots; ++slot)
            destinations_.push_back(streamDestination(state.registers, slot).value_or(StreamDestination{}));
        owed_ = std::numeric_limits<std::uint64_t>::max();
        socket_ = &socket;
    }
    const auto now = std::chrono::ceil<SampleTime>(WallClock::now().time_since_epoch());
    const StreamStart own{now.count(), reception.timebaseRatio, sharedLoHz(state)};
    const std::uint8_t word = state.stream.start;
    reception_ = std::move(reception);
    if (word == aloneStart || !setup_.syncLine) {
        begin(own);
    } else if (word == masterStart) {
        begin(own);
        setup_.syncLine->start(own);
    } else {
        startsBefore_ = setup_.syncLine->starts();
    }
}

void StreamService::begin(const StreamStart& start) {
    samples_ = StreamSamples::make(setup_.content, *reception_, start, captures_, setup_.loopTurns);
    const WallClock::time_point time(
        std::chrono::duration_cast<WallClock::duration>(SampleTime(start.firstSample)));
    stream_.emplace(reception_->state, report_, time,
                    [this](std::size_t channel, std::uint64_t first, SampleStream::Payload payload) {
                        return fill(channel, first, payload);
                    });
    reception_.reset();
    startClock_ = Clock::now() - std::chrono::duration_cast<Clock::duration>(WallClock::now() - time);
}

// A stream doesn't notice when somebody sets this machine's clock.
WallClock::time_point StreamService::streamTime() const {
    return stream_->startTime() +
           std::chrono::duration_cast<WallClock::duration>((Clock::now() - startClock_) * setup_.pace);
}

StreamService::Clock::time_point StreamService::clockAt(WallClock::time_point streamTime) const {
    return startClock_ +
           std::chrono::duration_cast<Clock::duration>((streamTime - stream_->startTime()) / setup_.pace);
}

void StreamService::stop() {
    reception_.reset();
    stream_.reset();
    samples_.reset();
    destinations_.clear();
    owed_ = 0;
}

bool StreamService::running() {
    if (stream_) return true;
    if (!reception_) return false;
    const auto started = setup_.syncLine->startAfter(startsBefore_);
    if (started) begin(*started);
    return started.has_value();
}

void StreamService::request(std::uint32_t datagrams, const Endpoint& to, UdpSocket& socket) {
    if (goesByItself()) {
        rules_.noteBrokenRule("samples requested of a stream that goes by itself");
        return;
    }
    owed_ += datagrams;
    to_ = to;
    socket_ = &socket;
}

std::optional<StreamService::Clock::time_point> StreamService::nextTime() const {
    if (owed_ == 0) return std::nullopt;
    const auto now = Clock::now();
    if (!stream_) return reception_ ? std::optional(now + lookTime) : std::nullopt;
    if (!inRealTime() || !stream_->betweenTurns()) return now;
    const auto wanted = static_cast<std::uint64_t>(collectingTime / stream_->turnTime());
    const std::uint64_t owedTurns = owed_ / stream_->channels().size();
    const auto turns = std::max<std::uint64_t>(std::min(wanted, owedTurns), 1);
    return clockAt(stream_->due(turns));
}

bool StreamService::nextIsReady(WallClock::time_point now) {
    if (!inRealTime() || !stream_->betweenTurns()) return true;
    dropWhatIsTooOld(now);
    return stream_->due() <= now;
}

void StreamService::dropWhatIsTooOld(WallClock::time_point now) {
    const std::uint64_t waiting = stream_->waiting(now);
    if (waiting > setup_.bufferTurns) stream_->loseTurns(waiting - setup_.bufferTurns);
}

void StreamService::serve() {
    if (owed_ == 0 || !running()) return;
    if (stream_->channels().empty()) {
        rules_.noteBrokenRule("samples requested of a stream without channels");
        owed_ = 0;
        return;
    }
    std::unique_lock lock(mutex_);
    const auto edges = edges_;
    warningsNow_ = warnings_;
    if (turnsToLose_ > 0 && stream_->betweenTurns()) stream_->loseTurns(std::exchange(turnsToLose_, 0));
    lock.unlock();

    for (int i = 0; i < batchesAtOnce && owed_ > 0; ++i) {
        const auto now = streamTime();
        for (DatagramBatch& batch : batches_) batch.clear();
        std::size_t count = 0;
        for (; owed_ > 0 && nextIsReady(now); --owed_, ++count) {
            DatagramBatch& batch = batches_[goesByItself() ? stream_->nextChannel() : 0];
            if (!batch.hasRoom()) break;
            batch.add(stream_->next(*edges, batch.room()));
        }
        if (count == 0) return;
        recording_.noteStreamReplies(count);
        sendBatches(now);
    }
}

void StreamService::sendBatches(WallClock::time_point now) {
    for (std::size_t input = 0; input < batches_.size(); ++input) {
        const DatagramBatch& batch = batches_[input];
        if (batch.count() == 0) continue;
        if (goesByItself() && setup_.packetFile) {
            for (std::size_t i = 0; i < batch.count(); ++i) {
                const auto datagram = batch.datagram(i);
                setup_.packetFile->write(now, destinations_[input], datagram,
                                         datagram.size() == contextPacketBytes);
            }
        }
        if (!goesByItself()) {
            replies_.send(batch, to_, *socket_);
        } else if (destinations_[input].to.isLoopback()) {
            replies_.send(batch, destinations_[input].to, *socket_);
        }
    }
}

std::uint32_t StreamService::fill(std::size_t channel, std::uint64_t firstSample,
                                  SampleStream::Payload payload) {
    const std::uint32_t found = samples_->fill(channel, firstSample, payload);
    if ((found & StreamWarning::overRange) != 0) overdriven_ |= static_cast<std::uint8_t>(1u << channel);
    return found | warningsNow_;
}

std::uint8_t StreamService::takeOverdriven() { return std::exchange(overdriven_, std::uint8_t{0}); }

void StreamService::setMarkerEdges(std::vector<MarkerEdge> edges) {
    auto shared = std::make_shared<const std::vector<MarkerEdge>>(std::move(edges));
    const std::lock_guard lock(mutex_);
    edges_.swap(shared);
}

void StreamService::setWarnings(std::uint32_t trailer) {
    const std::lock_guard lock(mutex_);
    warnings_ = trailer;
}

void StreamService::loseTurns(std::uint64_t turns) {
    const std::lock_guard lock(mutex_);
    turnsToLose_ += turns;
}

}  // namespace hxr::sim
