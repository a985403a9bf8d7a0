#include "stream/sample_ring.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "dsp/vector.h"

namespace hxr {
namespace {

/// Triggers that wait to be fetched: a batch holds one at most.
constexpr std::size_t mostTriggers = std::size_t{1} << 14;

/// Gaps that are kept apart.
constexpr std::size_t mostGaps = 1024;

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
    gaps_.reserve(mostGaps);
}

/// The position up to which all channels have their samples.
std::int64_t SampleRing::endOfStored() const {
    std::int64_t end = std::numeric_limits<std::int64_t>::max();
    for (std::size_t unit = 0; unit < layout_.unitCount; ++unit) {
        if (layout_.streamsOn(unit)) end = std::min(end, written_[unit]);
    }
    return end;
}

/// Samples from one position up to another, without those in gaps.
std::int64_t SampleRing::stored(std::int64_t from, std::int64_t to) const {
    std::int64_t samples = std::max<std::int64_t>(to - from, 0);
    for (const Gap& gap : gaps_)
        samples -= std::max<std::int64_t>(std::min(gap.end, to) - std::max(gap.begin, from), 0);
    return samples;
}

/// Joins a gap with those that it meets.
void SampleRing::addGap(std::int64_t begin, std::int64_t end) {
    const auto first = std::ranges::lower_bound(gaps_, begin, {}, &Gap::end);
    auto last = first;
    for (; last != gaps_.end() && last->begin <= end; ++last) {
        begin = std::min(begin, last->begin);
        end = std::max(end, last->end);
    }
    if (first != last) {
        *first = {begin, end};
        gaps_.erase(first + 1, last);
    } else if (gaps_.size() < mostGaps) {
        gaps_.insert(first, {begin, end});
    } else {
        const Gap newest = gaps_.back();  // joined with this one, which skips more than is missing
        gaps_.pop_back();
        addGap(std::min(begin, newest.begin), std::max(end, newest.end));
    }
}

/// Moves the read position behind the gap that it is in.
void SampleRing::skipGaps() {
    while (!gaps_.empty() && gaps_.front().begin <= readPosition_) {
        if (gaps_.front().end > readPosition_) moveReadPosition(gaps_.front().end);
        gaps_.erase(gaps_.begin());
    }
}

/// The clock goes on with the samples, also over those that nobody pulls.
void SampleRing::moveReadPosition(std::int64_t position) {
    const double nanoseconds = static_cast<double>(position - readPosition_) * nsPerSample_;
    timestamp_ += static_cast<std::uint64_t>(std::floor(nanoseconds + 0.5));
    readPosition_ = position;
}

/// Discards what is stored. What slower units bring for positions that are past is not read any more.
void SampleRing::skipToNewest() {
    std::int64_t newest = readPosition_;
    for (std::size_t unit = 0; unit < layout_.unitCount; ++unit) newest = std::max(newest, written_[unit]);
    moveReadPosition(newest);
    std::erase_if(gaps_, [&](const Gap& gap) { return gap.end <= newest; });
    std::erase_if(triggers_, [&](double position) { return position < static_cast<double>(newest); });
}

/// Makes room for samples up to a position. Where they don't fit, all that is stored is discarded.
void SampleRing::makeRoom(std::int64_t end) {
    const auto isFull = [&] { return end - readPosition_ >= capacity; };
    if (isFull()) skipGaps();
    if (!isFull()) return;
    ++counts_.overruns;
    counts_.lastOverrun = readPosition_;
    counts_.lastOverrunTime = timestamp_;
    counts_.discarded += static_cast<std::uint64_t>(stored(readPosition_, endOfStored()));
    overflowed_ = true;
    skipToNewest();
}

void SampleRing::setClock(std::uint64_t batchTime, std::int64_t batchStart) {
    const double ahead = std::floor(static_cast<double>(batchStart - readPosition_) * nsPerSample_ + 0.5);
    timestamp_ = batchTime - static_cast<std::uint64_t>(static_cast<std::int64_t>(ahead));
}

/// Where a unit's samples are stored. All units go by the same time, so one that jumps ahead of all others by more than the
/// ring holds has not lost samples: its clock was set. It goes on beside the foremost of them.
std::int64_t SampleRing::placeOf(std::size_t unit, std::int64_t position) {
    const std::int64_t place = position - clockStep_[unit];
    std::int64_t foremost = -1;
    for (std::size_t other = 0; other < layout_.unitCount; ++other) {
        if (other != unit && layout_.streamsOn(other)) foremost = std::max(foremost, written_[other]);
    }
    if (foremost < 0 || place - std::max(foremost, written_[unit]) < capacity) return place;
    const std::int64_t beside = std::max(foremost, written_[unit]);
    clockStep_[unit] += place - beside;
    return beside;
}

void SampleRing::push(std::size_t unit, const Blocks& blocks) {
    const auto samples = static_cast<std::int64_t>(blocks.frames * blocks.samplesPerFrame);
    std::int64_t start, end;
    {
        Lock lock(mutex_);
        start = placeOf(unit, blocks.position);
        end = start + samples;
        pulled_.wait(lock, [&] { return !pulling_ || end - readPosition_ < capacity; });
        if (start > written_[unit]) addGap(written_[unit], start);
        written_[unit] = start;
        makeRoom(end);
        if (unit == layout_.clockUnit) {
            setClock(blocks.time, start);
            const double trigger = static_cast<double>(start) + blocks.trigger.value_or(0);
            if (blocks.trigger && trigger >= static_cast<double>(readPosition_) &&
                triggers_.size() < mostTriggers)
                triggers_.push_back(trigger);
        }
    }
    for (std::size_t place = 0; place < layout_.channelsOfUnit[unit]; ++place) {
        const std::size_t channel = layout_.firstChannelOfUnit[unit] + place;
        for (std::size_t frame = 0; frame < blocks.frames; ++frame) {
            store(channel, start + static_cast<std::int64_t>(frame * blocks.samplesPerFrame),
                  blocks.of[place][frame], blocks.samplesPerFrame);
        }
    }
    const std::lock_guard lock(mutex_);
    written_[unit] = end;
    counts_.peak = std::max(counts_.peak, static_cast<std::uint64_t>(stored(readPosition_, end)));
    pushed_.notify_all();
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
    const auto hasSamples = [this] { return stored(readPosition_, endOfStored()) > 0; };
    pushed_.wait(lock, [&] { return ended_ || hasSamples(); });
    return hasSamples();
}

SampleRing::Pulled SampleRing::pull(std::int64_t wanted, const SampleFormat& format,
                                    const Destination& destination, std::span<double> triggers) {
    Pulled pulled;
    std::int64_t position;
    {
        const std::lock_guard lock(mutex_);
        skipGaps();
        std::int64_t end = endOfStored();
        if (!gaps_.empty()) end = std::min(end, gaps_.front().begin);
        pulled.samples = std::clamp<std::int64_t>(end - readPosition_, 0, std::min(wanted, mostPulled));
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
    return stored(readPosition_, endOfStored());
}

void SampleRing::purge() {
    const std::lock_guard lock(mutex_);
    skipToNewest();
}

RingCounts SampleRing::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

bool SampleRing::takeOverflow() {
    const std::lock_guard lock(mutex_);
    return std::exchange(overflowed_, false);
}

}  // namespace hxr
