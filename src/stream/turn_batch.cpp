#include "stream/turn_batch.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "link/byte_order.h"

namespace hxr {
namespace {

constexpr std::size_t headerBytes = 20;
constexpr std::size_t payloadBytes = samplesPerPacket * sizeof(ci16);
constexpr std::size_t packetBytes = headerBytes + payloadBytes + sizeof(std::uint32_t);

/// A datagram of a stream, in its buffer of `receiveRoom` bytes.
class SamplePacket {
  public:
    SamplePacket(std::byte* datagram, std::size_t length) : datagram_(datagram), length_(length) {}

    /// Too short a datagram says nothing of its kind, and counts as the data packet that is due.
    bool isData() const {
        constexpr std::uint32_t dataPacket = 1;
        return !hasHeader() || word(0) >> 28 == dataPacket;
    }

    bool isWhole() const { return length_ >= packetBytes; }
    bool hasHeader() const { return length_ >= headerBytes; }

    /// Nanoseconds since 1970 of the first sample.
    std::optional<std::uint64_t> time() const {
        if (!hasHeader()) return std::nullopt;
        const std::uint64_t picoseconds = std::uint64_t{word(12)} << 32 | word(16);
        return std::uint64_t{word(8)} * 1'000'000'000 + picoseconds / 1000;
    }

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

    std::byte* datagram_;
    std::size_t length_;
};

/// An indicator of the trailer counts where its enable bit is set.
bool indicates(std::uint32_t trailer, int enableBit, int indicatorBit) {
    return (trailer >> enableBit & 1) != 0 && (trailer >> indicatorBit & 1) != 0;
}

int markerOf(const ci16& sample) { return (sample.re ^ sample.im) & 1; }

}  // namespace

void TurnAssembler::beginBatch(TurnBatch& batch) const {
    batch.turns = 0;
    batch.adcOverflow = batch.sampleLoss = batch.ddrOverflow = batch.gap = false;
    batch.time.reset();
    if (rotor_ == 0) return;
    batch.time = carriedTime_;
    batch.triggered[0] = carriedTrigger_;
    for (std::size_t channel = 0; channel < rotor_; ++channel)
        batch.samples[channel][0] = pending_[pendingInUse_].samples[channel].data();
}

void TurnAssembler::keepPending(const TurnBatch& batch) {
    pendingInUse_ = 1 - pendingInUse_;
    for (std::size_t channel = 0; channel < rotor_; ++channel)
        std::copy_n(batch.samples[channel][batch.turns], samplesPerPacket,
                    pending_[pendingInUse_].samples[channel].begin());
}

void TurnAssembler::read(ReceiveResult& received, TurnBatch& batch) {
    beginBatch(batch);
    for (std::size_t i = 0; i < static_cast<std::size_t>(received.count); ++i) {
        if (received.timedOut && received.lengths[i] == 0) break;
        SamplePacket packet(received.buffers[i], received.lengths[i]);
        if (!packet.isData()) continue;

        const std::uint32_t trailer = packet.trailer();
        constexpr int overRangeEnable = 25, overRange = 13, lossEnable = 24, loss = 12, ddrEnable = 21,
                      ddr = 9, triggerEnable = 20, trigger = 8;
        batch.adcOverflow |= indicates(trailer, overRangeEnable, overRange);
        const bool unitLostSamples = indicates(trailer, lossEnable, loss);
        batch.sampleLoss |= unitLostSamples || !packet.isWhole();
        batch.ddrOverflow |= indicates(trailer, ddrEnable, ddr);
        batch.gap |= unitLostSamples || batch.ddrOverflow;
        if (rotor_ == 0) {
            carriedTime_ = packet.time();
            carriedTrigger_ = indicates(trailer, triggerEnable, trigger);
            batch.triggered[batch.turns] = carriedTrigger_;
            if (batch.turns == 0) batch.time = carriedTime_;
        }
        batch.samples[rotor_][batch.turns] = packet.samples();
        if (++rotor_ == channels_) {
            rotor_ = 0;
            ++batch.turns;
        }
    }
    keepPending(batch);
}

std::optional<double> TriggerFinder::find(const TurnBatch& batch) {
    std::optional<double> found;
    for (std::size_t turn = 0; turn < batch.turns; ++turn) {
        const ci16* samples = batch.samples[0][turn];
        for (int j = 0; j < samplesPerPacket && batch.triggered[turn] && !found; ++j) {
            const int marker = markerOf(samples[j]);
            if (marker - lastMarker_ == edge_) found = static_cast<double>(turn) * samplesPerPacket + j;
            lastMarker_ = marker;
        }
        lastMarker_ = markerOf(samples[samplesPerPacket - 1]);
    }
    return found;
}

}  // namespace hxr
