#include "stream/sample_ring.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "dsp/vector.h"

namespace hxr {
namespace {

/// Triggers that wait to be fetched: a batch holds one at most.
constexpr std::size_t mostTriggers = std::size_t{1} << 14;

/// The most that is pulled at a time: a unit that finds the ring full waits for it.
constexpr std::int64_t mostPulled = std::int64_t{1} << 17;

constexpr int fullScaleBits = 15;
constexpr int reals = 2;  ///< of a complex sample

/// Where a position lies in a buffer, and how many samples stand there in a row.
struct Stretch {
    std::int64_t index;
    std::int64_t samples;
};
Stretch stretchAt(std::int64_t position, std::int64_t samples) {
    const std::int64_t index = position % SampleRing::capacity;
    return {index, std::min(samples, SampleRing::capacity - index)};
}

}  // namespace

SampleRing::SampleRing(const StreamLayout& layout, bool floatSamples, double nsPerSample)
    : layout_(layout), floatSamples_(floatSamples), nsPerSample_(nsPerSample) {
    // The system gives memory as it is used: a stream that is fetched in time needs little of it.
    const std::size_t sampleBytes = floatSamples ? sizeof(cf32) : sizeof(ci16);
    for (std::size_t channel = 0; channel < layout_.channelCount; ++channel)
        buffers_[channel] =
            platform::makeAlignedArray<std::byte>(static_cast<std::size_t>(capacity) * sampleBytes);
    triggers_.reserve(mostTriggers);
}

std::int64_t SampleRing::smallestAvailable() const {
    std::int64_t smallest = capacity;
    for (std::size_t unit = 0; unit < layout_.unitCount; ++unit) {
        if (layout_.streamsOn(unit)) smallest = std::min(smallest, written_[unit] - readPosition_);
    }
    return std::max<std::int64_t>(smallest, 0);
}

/// The clock goes on with the samples, also over those that nobody pulls.
void SampleRing::moveReadPosition(std::int64_t position) {
    const double nanoseconds = static_cast<double>(position - readPosition_) * nsPerSample_;
    timestamp_ += static_cast<std::uint64_t>(std::floor(nanoseconds + 0.5));
    readPosition_ = position;
}

/// Throws away what is stored. Units that are behind the foremost one have their next samples thrown away too, so that
/// their instants meet again; where a unit has lost track of its own, there is nothing to meet.
void SampleRing::skipToNewest() {
    std::int64_t newest = readPosition_;
    for (std::size_t unit = 0; unit < layout_.unitCount; ++unit) newest = std::max(newest, written_[unit]);
    for (std::size_t unit = 0; unit < layout_.unitCount; ++unit) {
        if (std::exchange(offTrack_[unit], false)) written_[unit] = newest;
    }
    moveReadPosition(newest);
    std::erase_if(triggers_, [&](double position) { return position < static_cast<double>(newest); });
}

void SampleRing::setClock(std::uint64_t batchTime, std::int64_t batchStart) {
    const double ahead = std::floor(static_cast<double>(batchStart - readPosition_) * nsPerSample_ + 0.5);
    timestamp_ = batchTime - static_cast<std::uint64_t>(static_cast<std::int64_t>(ahead));
}

void SampleRing::push(std::size_t unit, const Blocks& blocks) {
    const auto samples = static_cast<std::int64_t>(blocks.turns * blocks.samplesPerTurn);
    std::int64_t start;
    {
        Lock lock(mutex_);
        const auto thereIsRoom = [&] { return written_[unit] + samples - readPosition_ < capacity; };
        pulled_.wait(lock, [&] { return !pulling_ || thereIsRoom(); });
        if (!thereIsRoom()) {
            skipToNewest();
            overflowed_ = true;
        }
        start = written_[unit];
        if (unit == layout_.clockUnit) {
            if (blocks.time) setClock(*blocks.time, start);
            const double trigger = static_cast<double>(start) + blocks.trigger.value_or(0);
            if (blocks.trigger && trigger >= static_cast<double>(readPosition_) &&
                triggers_.size() < mostTriggers)
                triggers_.push_back(trigger);
        }
    }
    for (std::size_t place = 0; place < layout_.channelsOfUnit[unit]; ++place) {
        const std::size_t channel = layout_.firstChannelOfUnit[unit] + place;
        for (std::size_t turn = 0; turn < blocks.turns; ++turn) {
            store(channel, start + static_cast<std::int64_t>(turn * blocks.samplesPerTurn),
                  blocks.of[place][turn], blocks.samplesPerTurn);
        }
    }
    const std::lock_guard lock(mutex_);
    // If the unit was sent ahead meanwhile, these samples are past.
    if (written_[unit] == start) written_[unit] = start + samples;
    pushed_.notify_all();
}

void SampleRing::loseTrack(std::size_t unit) {
    const std::lock_guard lock(mutex_);
    offTrack_[unit] = true;
}

/// The ring's length is a multiple of every block's.
void SampleRing::store(std::size_t channel, std::int64_t position, const void* block, std::size_t samples) {
    const auto index = static_cast<std::size_t>(position % capacity);
    std::byte* const buffer = buffers_[channel].get();
    const std::size_t sampleBytes = floatSamples_ ? sizeof(cf32) : sizeof(ci16);
    std::memcpy(buffer + index * sampleBytes, block, samples * sampleBytes);
}

void SampleRing::end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
    pushed_.notify_all();
}

bool SampleRing::waitForSamples() {
    Lock lock(mutex_);
    pushed_.wait(lock, [this] { return ended_ || smallestAvailable() > 0; });
    return smallestAvailable() > 0;
}

SampleRing::Pulled SampleRing::pull(std::int64_t wanted, const SampleFormat& format,
                                    const Destination& destination, std::span<double> triggers) {
    Pulled pulled;
    std::int64_t position;
    {
        const std::lock_guard lock(mutex_);
        pulled.samples = std::min({smallestAvailable(), wanted, mostPulled});
        pulled.time = timestamp_;
        position = readPosition_;
        pulling_ = true;
    }
    const std::size_t outBytes = format.floats ? sizeof(cf32) : sizeof(ci16);
    for (std::size_t channel = 0; channel < layout_.channelCount; ++channel) {
        auto* out = static_cast<std::byte*>(destination.channels[channel]) +
                    static_cast<std::size_t>(destination.offset) * outBytes;
        for (std::int64_t done = 0; done < pulled.samples;) {
            const Stretch stretch = stretchAt(position + done, pulled.samples - done);
            copyOut(channel, stretch.index, stretch.samples, format,
                    out + static_cast<std::size_t>(done) * outBytes);
            done += stretch.samples;
        }
    }
    const std::lock_guard lock(mutex_);
    pulled.triggers = takeTriggers(readPosition_ + pulled.samples, triggers);
    moveReadPosition(readPosition_ + pulled.samples);
    pulling_ = false;
    pulled_.notify_all();
    return pulled;
}

void SampleRing::copyOut(std::size_t channel, std::int64_t index, std::int64_t samples,
                         const SampleFormat& format, void* out) const {
    const auto count = static_cast<int>(samples);
    const std::byte* const buffer = buffers_[channel].get();
    const float scale = format.scale[channel];
    if (floatSamples_) {
        const cf32* from = reinterpret_cast<const cf32*>(buffer) + index;
        if (format.floats) {
            dspMulConstF32(&from->re, scale, static_cast<float*>(out), reals * count);
        } else {
            dspF32ToI16(&from->re, static_cast<std::int16_t*>(out), reals * count, dspRoundToNearest,
                        -fullScaleBits);
        }
        return;
    }
    const ci16* from = reinterpret_cast<const ci16*>(buffer) + index;
    if (format.floats) {
        const float toFullScaleOne = std::ldexp(scale, -fullScaleBits);
        dspI16ToF32By(&from->re, toFullScaleOne, static_cast<float*>(out), reals * count);
    } else {
        dspCopy32(from, out, count);
    }
}

/// Hands out the triggers before a position and forgets those that there is no room for.
std::size_t SampleRing::takeTriggers(std::int64_t end, std::span<double> triggers) {
    const auto pulledEnd = std::ranges::lower_bound(triggers_, static_cast<double>(end));
    const auto count = std::min(static_cast<std::size_t>(pulledEnd - triggers_.begin()), triggers.size());
    for (std::size_t i = 0; i < count; ++i) triggers[i] = triggers_[i] - static_cast<double>(readPosition_);
    triggers_.erase(triggers_.begin(), pulledEnd);
    return count;
}

std::int64_t SampleRing::available() const {
    const std::lock_guard lock(mutex_);
    return smallestAvailable();
}

void SampleRing::purge() {
    const std::lock_guard lock(mutex_);
    skipToNewest();
}

bool SampleRing::takeOverflow() {
    const std::lock_guard lock(mutex_);
    return std::exchange(overflowed_, false);
}

}  // namespace hxr
