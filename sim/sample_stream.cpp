#include "sim/sample_stream.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "sim/byte_order.h"
#include "sim/capture_settings.h"

namespace hxr::sim {
namespace {

constexpr std::uint64_t captureRate = 50'000'000;
constexpr std::uint64_t nanosecondsPerSample = 1'000'000'000 / captureRate;

constexpr std::uint16_t firstIdentifierRegister = 8;
constexpr std::uint16_t firstContextRegister = 0x40;
constexpr std::uint16_t contextRegisters = 9;

constexpr std::size_t sampleBytes = 4;
constexpr int leastSignificantFirstBit = 13;  // of the route

/// Turns the marker over in a part of a payload.
void turnMarkerOver(std::span<std::uint8_t> samples) {
    constexpr std::size_t q = 2;
    for (std::size_t at = q; at < samples.size(); at += sampleBytes) samples[at] ^= 1;
}

/// Sets the marker of samples in which it is low, as the edges tell.
/// @returns whether an edge lies in the payload
bool mark(const std::vector<MarkerEdge>& edges, std::uint64_t firstSample, SampleStream::Payload payload) {
    const auto isBefore = [](const MarkerEdge& edge, std::uint64_t sample) { return edge.sample < sample; };
    const std::uint64_t endSample = firstSample + SampleStream::samplesPerPacket;
    const auto first = std::lower_bound(edges.begin(), edges.end(), firstSample, isBefore);
    bool high = first != edges.begin() && std::prev(first)->high;
    std::uint64_t from = firstSample;
    auto next = first;
    while (true) {
        const bool more = next != edges.end() && next->sample < endSample;
        const std::uint64_t to = more ? next->sample : endSample;
        if (high)
            turnMarkerOver(payload.subspan((from - firstSample) * sampleBytes, (to - from) * sampleBytes));
        if (!more) return next != first;
        high = next->high;
        from = to;
        ++next;
    }
}

}  // namespace

SampleStream::SampleStream(const UnitState& state, const ContextReport& report, Time start, Fill fill)
    : decimation_(streamDecimation(state)),
      report_(report),
      mostSignificantFirst_((state.route >> leastSignificantFirstBit & 1) == 0),
      start_(start),
      clockAhead_(state.clockAhead),
      fill_(std::move(fill)) {
    for (std::size_t channel = 0; channel < streamId_.size(); ++channel) {
        if ((state.route >> channel & 1) == 0) continue;
        channels_.push_back(channel);
        const auto at = [&](std::uint16_t first, std::size_t place) {
            return state.registers.read(static_cast<std::uint16_t>(first + place)).value_or(0);
        };
        streamId_[channel] = at(firstIdentifierRegister, channel);
        for (std::size_t i = 0; i < contextRegisters; ++i)
            contextFields_[channel].push_back(at(firstContextRegister, contextRegisters * channel + i));
    }
    if (state.context.enabled != 0) contextInterval_ = state.context.interval;
}

SampleStream::Time SampleStream::timeOf(std::uint64_t sample) const {
    return start_ + std::chrono::nanoseconds(sample * decimation_ * nanosecondsPerSample);
}

std::uint64_t SampleStream::waiting(Time now) const {
    const auto passed = std::chrono::duration_cast<std::chrono::nanoseconds>(now - start_).count();
    const std::uint64_t taken = static_cast<std::uint64_t>(std::max<std::int64_t>(passed, 0)) /
                                (nanosecondsPerSample * decimation_ * samplesPerPacket);
    return taken > turn_ ? taken - turn_ : 0;
}

void SampleStream::loseTurns(std::uint64_t count) {
    turn_ += count;
    losses_ = StreamWarning::sampleLoss | StreamWarning::bufferOverflow;
}

std::chrono::nanoseconds SampleStream::turnTime() const {
    return std::chrono::nanoseconds(samplesPerPacket * decimation_ * nanosecondsPerSample);
}

std::size_t SampleStream::nextChannel() const {
    return channels_[contextsLeft_ > 0 ? channels_.size() - contextsLeft_ : place_];
}

std::size_t SampleStream::next(const std::vector<MarkerEdge>& edges, std::span<std::uint8_t> datagram) {
    const std::size_t channel = nextChannel();
    if (contextsLeft_ > 0) {
        --contextsLeft_;
        putContext(channel, datagram);
        return contextPacketBytes;
    }
    putSamplePacket(channel, edges, datagram);
    if (++place_ == channels_.size()) {
        place_ = 0;
        ++turn_;
        losses_ = 0;
        if (contextInterval_ > 0 && turn_ % contextInterval_ == 0) contextsLeft_ = channels_.size();
    }
    return dataDatagramBytes;
}

void SampleStream::putSamplePacket(std::size_t channel, const std::vector<MarkerEdge>& edges,
                                   std::span<std::uint8_t> datagram) {
    const std::uint64_t first = turn_ * samplesPerPacket;
    const Payload payload = datagram.subspan<dataHeaderBytes, dataPayloadBytes>();
    std::uint32_t trailer = losses_ | fill_(channel, first, payload);
    if (mark(edges, first, payload)) trailer |= StreamWarning::trigger;
    if (mostSignificantFirst_) {
        for (std::size_t at = 0; at < payload.size(); at += 2) std::swap(payload[at], payload[at + 1]);
    }
    const std::uint8_t count = counts_[channel]++;
    putDataFrame(datagram, {streamId_[channel], static_cast<std::uint8_t>(count & 15),
                            timeOf(first) + clockAhead_, trailer});
}

void SampleStream::putContext(std::size_t channel, std::span<std::uint8_t> datagram) {
    const ContextHeader header{streamId_[channel], contextCounts_[channel]++,
                               timeOf(turn_ * samplesPerPacket) + clockAhead_};
    putContextPacket(datagram.first<contextPacketBytes>(), header, contextFields_[channel], report_);
}

void lowerMarker(std::span<std::uint8_t> payload) {
    constexpr std::size_t q = 2;
    for (std::size_t at = 0; at < payload.size(); at += sampleBytes) {
        payload[at + q] = static_cast<std::uint8_t>((payload[at + q] & ~1) | (payload[at] & 1));
    }
}

void SampleCounter::put(std::size_t channel, std::uint64_t firstSample, SampleStream::Payload payload) {
    constexpr int lowBits = 15, channelBit = 1, highBit = 3, q = 16;
    constexpr std::uint64_t railMask = 0xFFFE;
    for (std::size_t i = 0; i < SampleStream::samplesPerPacket; ++i) {
        const std::uint64_t n = firstSample + i;
        const std::uint64_t high = (n >> lowBits << highBit | channel << channelBit) & railMask;
        putLittle32(payload.data() + sampleBytes * i,
                    static_cast<std::uint32_t>((n << 1 & railMask) | high << q));
    }
}

}  // namespace hxr::sim
