#include "stream/frame_batch.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "link/byte_order.h"

namespace hxr {
namespace {

constexpr std::size_t headerBytes = 20;
constexpr std::size_t payloadBytes = samplesPerPacket * sizeof(ci16);
constexpr std::size_t packetBytes = headerBytes + payloadBytes + sizeof(std::uint32_t);

constexpr std::int64_t samplePicoseconds = 20'000;  // at 50 MS/s
constexpr std::int64_t second = 1'000'000'000'000;  // in picoseconds

// A time stamp that jumps by more than this tells that the unit's clock was set: the frame is the next one.
constexpr std::int64_t longestGap = 60 * second;
// A packet that is older than the present frame comes late, up to what the requests under way ask for. One that is older
// still tells that the clock was set.
constexpr std::int64_t mostFramesLate = 512;

/// An indicator of the trailer counts where its enable bit is set.
bool indicates(std::uint32_t trailer, int enableBit, int indicatorBit) {
    return (trailer >> enableBit & 1) != 0 && (trailer >> indicatorBit & 1) != 0;
}

int markerOf(const ci16& sample) { return (sample.re ^ sample.im) & 1; }

}  // namespace

/// A datagram of a stream, in its buffer of `receiveRoom` bytes.
class FrameAssembler::Packet {
  public:
    Packet(std::byte* datagram, std::size_t length) : datagram_(datagram), length_(length) {}

    /// Too short a datagram says nothing of its kind, and counts as the data packet that is due.
    bool isData() const {
        constexpr std::uint32_t dataPacket = 1;
        return !hasHeader() || word(0) >> 28 == dataPacket;
    }

    bool isWhole() const { return length_ >= packetBytes; }
    bool hasHeader() const { return length_ >= headerBytes; }

    std::uint32_t identifier() const { return word(4); }

    /// Picoseconds since 1970 of the first sample, modulo 2^64: what counts are differences.
    std::uint64_t ticks() const { return std::uint64_t{word(8)} * second + picoseconds(); }
    /// Nanoseconds since 1970 of the first sample.
    std::uint64_t time() const { return std::uint64_t{word(8)} * 1'000'000'000 + picoseconds() / 1000; }

    /// The trailer, whose place is told by the packet's size in words; 0 where there is none.
    std::uint32_t trailer() const {
        if (!hasHeader()) return 0;
        const std::size_t size = (word(0) & 0xFFFF) * sizeof(std::uint32_t);
        return size > headerBytes && size <= length_ ? word(size - sizeof(std::uint32_t)) : 0;
    }

    /// The samples, zeros where the datagram ends too early.
    const ci16* samples() {
        const std::size_t end = headerBytes + payloadBytes;
        if (length_ < end) {
            const std::size_t from = std::max(length_, headerBytes);
            std::memset(datagram_ + from, 0, end - from);
        }
        static_assert(std::endian::native == std::endian::little, "samples are used as they come");
        return reinterpret_cast<const ci16*>(datagram_ + headerBytes);
    }

  private:
    std::uint32_t word(std::size_t offset) const { return loadBig32(datagram_ + offset); }
    std::uint64_t picoseconds() const { return std::uint64_t{word(12)} << 32 | word(16); }

    std::byte* datagram_;
    std::size_t length_;
};

FrameAssembler::FrameAssembler(std::span<const std::uint32_t> identifiers, int decimation)
    : channels_(identifiers.size()), frameTicks_(samplesPerPacket * samplePicoseconds * decimation) {
    std::ranges::copy(identifiers, identifiers_.begin());
}

void FrameAssembler::beginBatch(FrameBatch& batch) const {
    batch.frames = 0;
    batch.adcOverflow = batch.sampleLoss = batch.ddrOverflow = false;
    batch.datagrams = batch.contextPackets = batch.duplicates = batch.outOfOrder = batch.framesLost =
        batch.adcOverflows = 0;
    batch.lastLoss = -1;
    batch.number[0] = number_;
    batch.time[0] = time_;
    batch.triggered[0] = triggered_;
    for (std::size_t place = 0; place < channels_; ++place)
        batch.samples[place][0] = pending_[pendingInUse_].samples[place].data();
}

void FrameAssembler::keepPending(const FrameBatch& batch) {
    pendingInUse_ = 1 - pendingInUse_;
    for (std::size_t place = 0; place < channels_; ++place) {
        if ((filled_ >> place & 1) != 0)
            std::copy_n(batch.samples[place][batch.frames], samplesPerPacket,
                        pending_[pendingInUse_].samples[place].begin());
    }
}

void FrameAssembler::read(ReceiveResult& received, FrameBatch& batch) {
    const unsigned allPlaces = (1U << channels_) - 1;
    beginBatch(batch);
    for (std::size_t i = 0; i < static_cast<std::size_t>(received.count); ++i) {
        if (received.timedOut && received.lengths[i] == 0) break;
        Packet packet(received.buffers[i], received.lengths[i]);
        ++batch.datagrams;
        if (!packet.isData()) {
            ++batch.contextPackets;
            continue;
        }
        if (!findFrame(packet, batch)) continue;
        const auto place = placeOf(packet, batch);
        if (!place) continue;

        const std::uint32_t trailer = packet.trailer();
        constexpr int overRangeEnable = 25, overRange = 13, lossEnable = 24, loss = 12, ddrEnable = 21,
                      ddr = 9, triggerEnable = 20, trigger = 8;
        const bool overflow = indicates(trailer, overRangeEnable, overRange);
        batch.adcOverflow |= overflow;
        batch.adcOverflows += overflow ? 1 : 0;
        batch.sampleLoss |= indicates(trailer, lossEnable, loss) || !packet.isWhole();
        batch.ddrOverflow |= indicates(trailer, ddrEnable, ddr);
        if (*place == 0)
            triggered_ = batch.triggered[batch.frames] = indicates(trailer, triggerEnable, trigger);
        batch.samples[*place][batch.frames] = packet.samples();
        filled_ |= 1U << *place;
        if (filled_ == allPlaces) {
            filled_ = 0;
            ++batch.frames;
        }
    }
    keepPending(batch);
}

/// Finds the frame of a packet: the one under way, or a new one.
/// @return false for a packet that comes too late for its frame
bool FrameAssembler::findFrame(const Packet& packet, FrameBatch& batch) {
    if (!packet.hasHeader()) {
        if (filled_ == 0) beginFrame(started_ ? number_ + 1 : 0, packet, batch);
        return true;
    }
    if (!started_) {
        beginFrame(0, packet, batch);
        return true;
    }
    const auto ahead = static_cast<std::int64_t>(packet.ticks() - ticks_);
    if (ahead == 0 && filled_ != 0) return true;
    if (ahead > longestGap || ahead < -mostFramesLate * frameTicks_) {
        beginFrame(number_ + 1, packet, batch);
        return true;
    }
    const std::int64_t frames = (ahead + (ahead < 0 ? -frameTicks_ : frameTicks_) / 2) / frameTicks_;
    if (frames > 0) {
        beginFrame(number_ + frames, packet, batch);
        return true;
    }
    if (frames == 0 && filled_ != 0) return true;
    ++(frames == 0 ? batch.duplicates : batch.outOfOrder);
    return false;
}

/// Begins a frame. One that is under way is lost.
void FrameAssembler::beginFrame(std::int64_t number, const Packet& packet, FrameBatch& batch) {
    const bool incomplete = filled_ != 0;
    const std::int64_t due = incomplete || !started_ ? number_ : number_ + 1;
    if (started_ && number > due) noteGap(due, number, batch);
    filled_ = 0;
    started_ = true;
    if (packet.hasHeader()) {
        ticks_ = packet.ticks();
        time_ = packet.time();
    } else {
        // What its time stamp would have been.
        const auto frames = static_cast<std::uint64_t>(number - number_);
        ticks_ += frames * static_cast<std::uint64_t>(frameTicks_);
        time_ += frames * static_cast<std::uint64_t>(frameTicks_) / 1000;
    }
    number_ = number;
    triggered_ = false;
    batch.number[batch.frames] = number;
    batch.time[batch.frames] = time_;
    batch.triggered[batch.frames] = false;
}

/// Frames from `first` up to `next` are missing.
void FrameAssembler::noteGap(std::int64_t first, std::int64_t next, FrameBatch& batch) const {
    batch.sampleLoss = true;
    batch.framesLost += static_cast<std::uint64_t>(next - first);
    batch.lastLoss = first;
    const auto frames = static_cast<std::uint64_t>(first - number_);
    batch.lastLossTime = time_ + frames * static_cast<std::uint64_t>(frameTicks_) / 1000;
}

/// The place of a packet in its frame.
/// @return nothing for a packet that is there already
std::optional<std::size_t> FrameAssembler::placeOf(const Packet& packet, FrameBatch& batch) const {
    const auto due = static_cast<std::size_t>(std::countr_one(filled_));
    std::size_t place = due;
    if (packet.hasHeader() && packet.identifier() != identifiers_[due]) {
        const auto end = identifiers_.begin() + static_cast<std::ptrdiff_t>(channels_);
        const auto known = std::find(identifiers_.begin(), end, packet.identifier());
        if (known != end) place = static_cast<std::size_t>(known - identifiers_.begin());
    }
    if ((filled_ >> place & 1) != 0) {
        ++batch.duplicates;
        return std::nullopt;
    }
    if (filled_ >> place != 0) ++batch.outOfOrder;
    return place;
}

std::optional<TriggerFinder::Place> TriggerFinder::find(const FrameBatch& batch) {
    std::optional<Place> found;
    for (std::size_t frame = 0; frame < batch.frames; ++frame) {
        const ci16* samples = batch.samples[0][frame];
        for (int j = 0; j < samplesPerPacket && batch.triggered[frame] && !found; ++j) {
            const int marker = markerOf(samples[j]);
            if (marker - lastMarker_ == edge_) found = Place{frame, j};
            lastMarker_ = marker;
        }
        lastMarker_ = markerOf(samples[samplesPerPacket - 1]);
    }
    return found;
}

}  // namespace hxr
