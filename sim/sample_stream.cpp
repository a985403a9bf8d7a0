#include "sim/sample_stream.h"

#include <algorithm>

#include "sim/byte_order.h"

namespace hxr::sim {
namespace {

constexpr std::uint64_t captureRate = 50'000'000;
constexpr std::uint64_t nanosecondsPerSample = 1'000'000'000 / captureRate;

constexpr std::uint16_t firstIdentifierRegister = 8;
constexpr std::uint16_t firstContextRegister = 0x40;
constexpr std::uint16_t contextRegisters = 9;

/// Sets the marker as the edges tell.
/// @returns whether an edge lies in the payload
bool mark(const std::vector<MarkerEdge>& edges, std::uint64_t firstSample, SampleStream::Payload& payload) {
    constexpr std::size_t sampleBytes = 4, second = 2;
    bool high = false, found = false;
    auto next = edges.begin();
    while (next != edges.end() && next->sample < firstSample) high = next++->high;
    for (std::size_t i = 0; i < SampleStream::samplesPerPacket; ++i) {
        if (next != edges.end() && next->sample == firstSample + i) {
            high = next++->high;
            found = true;
        }
        std::uint8_t& lowI = payload[sampleBytes * i];
        std::uint8_t& lowQ = payload[sampleBytes * i + second];
        lowQ = static_cast<std::uint8_t>((lowQ & ~1) | ((lowI ^ static_cast<int>(high)) & 1));
    }
    return found;
}

}  // namespace

SampleStream::SampleStream(const UnitState& state, Time start, Fill fill)
    : start_(start), fill_(std::move(fill)) {
    constexpr int codeBit = 8;
    const unsigned code = state.route >> codeBit & 3;
    decimation_ = code == 0 ? 1 : std::uint64_t{1} << (code - 1);
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

std::vector<std::uint8_t> SampleStream::next(const std::vector<MarkerEdge>& edges) {
    if (contextsLeft_ > 0) return contextPacket(channels_[channels_.size() - contextsLeft_--]);

    std::vector<std::uint8_t> packet = samplePacket(channels_[place_], edges);
    if (++place_ == channels_.size()) {
        place_ = 0;
        ++turn_;
        losses_ = 0;
        if (contextInterval_ > 0 && turn_ % contextInterval_ == 0) contextsLeft_ = channels_.size();
    }
    return packet;
}

std::vector<std::uint8_t> SampleStream::samplePacket(std::size_t channel,
                                                     const std::vector<MarkerEdge>& edges) {
    const std::uint64_t first = turn_ * samplesPerPacket;
    Payload payload;
    std::uint32_t trailer = losses_ | fill_(channel, first, payload);
    if (!edges.empty() && mark(edges, first, payload)) trailer |= StreamWarning::trigger;
    const std::uint8_t count = counts_[channel]++;
    return makeDataDatagram(
        {streamId_[channel], static_cast<std::uint8_t>(count & 15), timeOf(first), trailer}, payload);
}

std::vector<std::uint8_t> SampleStream::contextPacket(std::size_t channel) const {
    constexpr std::uint32_t packetWords = 28;
    constexpr std::uint32_t contextPacketType = 4u << 28 | 1u << 22 | 2u << 20;
    constexpr std::size_t firstField = 20, wordBytes = 4;
    std::vector<std::uint8_t> bytes(packetWords * wordBytes);
    const auto sinceEpoch = timeOf(turn_ * samplesPerPacket).time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto fraction = std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch - seconds);
    constexpr std::uint64_t picoseconds = 1000;
    putBig(bytes, 0, 4, contextPacketType | packetWords);
    putBig(bytes, 4, 4, streamId_[channel]);
    putBig(bytes, 8, 4, static_cast<std::uint64_t>(seconds.count()));
    putBig(bytes, 12, 8, static_cast<std::uint64_t>(fraction.count()) * picoseconds);
    for (std::size_t i = 0; i < contextFields_[channel].size(); ++i)
        putBig(bytes, firstField + wordBytes * i, wordBytes, contextFields_[channel][i]);
    return bytes;
}

SampleStream::Time SampleStream::clockAt(Time now, double pace) const {
    return start_ + std::chrono::duration_cast<Time::duration>((now - start_) * pace);
}

void SampleCounter::put(std::size_t channel, std::uint64_t firstSample, SampleStream::Payload& payload) {
    constexpr std::size_t sampleBytes = 4;
    constexpr int lowBits = 15, channelBit = 1, highBit = 3;
    for (std::size_t i = 0; i < SampleStream::samplesPerPacket; ++i) {
        const std::uint64_t n = firstSample + i;
        putLittle(payload, sampleBytes * i, 2, n << 1 & 0xFFFE);
        putLittle(payload, sampleBytes * i + 2, 2,
                  (n >> lowBits << highBit | channel << channelBit) & 0xFFFE);
    }
}

}  // namespace hxr::sim
