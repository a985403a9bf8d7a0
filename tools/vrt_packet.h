/// VITA-49 packets as they arrive: what one says, and what a row of them tells.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// A packet of samples of 16 bits, or of what belongs to them.
struct VrtPacket {
    bool context = false;
    std::uint32_t stream = 0;
    unsigned count = 0;             ///< of the stream's packets of this kind, modulo 16
    std::uint64_t picoseconds = 0;  ///< of the second
    std::uint64_t seconds = 0;      ///< since 1970
    std::span<const std::uint8_t> payload;
};

/// @return nothing if it is none, or is cut
std::optional<VrtPacket> parseVrt(std::span<const std::uint8_t> bytes);

/// The fields of a context packet that a receiver of samples needs.
struct VrtContext {
    double bandwidthHz = 0, frequencyHz = 0, rateHz = 0;
    double referenceDbm = 0;  ///< level of a full-scale sample
    double gainDb = 0, degrees = 0;
};

/// @return nothing if its fields end before their time
std::optional<VrtContext> parseVrtContext(std::span<const std::uint8_t> payload);

/// One stream, packet by packet.
class VrtStream {
  public:
    explicit VrtStream(bool littleEndian) : littleEndian_(littleEndian) {}

    void take(const VrtPacket& packet);

    std::int64_t packets() const { return packets_; }
    std::int64_t lost() const { return lost_; }
    std::int64_t contexts() const { return contexts_; }
    const std::optional<VrtContext>& context() const { return context_; }
    /// Samples a second, by the time stamps.
    double rateHz() const;
    /// Mean power of all samples, in dB of full scale.
    double dbfs() const;
    /// Of the last packet.
    std::uint64_t seconds() const { return lastSeconds_; }

  private:
    void takeSamples(std::span<const std::uint8_t> payload);

    const bool littleEndian_;
    std::int64_t packets_ = 0, lost_ = 0, contexts_ = 0, samples_ = 0;
    unsigned nextCount_ = 0;
    std::uint64_t firstTime_ = 0, lastTime_ = 0, lastSeconds_ = 0;  ///< picoseconds of one day, seconds
    double power_ = 0;
    std::optional<VrtContext> context_;
};
