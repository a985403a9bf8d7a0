#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "sim/synthesizer_registers.h"

namespace hxr::sim {

/// The DDS resolves microhertz: a VCO tuned to an end of its range may be beyond it by a few of them.
inline constexpr double vcoRoundingHz = 1.0;

/// The eight registers of the routing expander.
using Expander = std::array<std::uint8_t, 8>;

/// The 1 GHz direct digital synthesizer. Its 48-bit tuning word works from when the chip is told to take it.
class Dds {
  public:
    void write(std::uint16_t address, std::uint8_t value);

    /// Nothing until a word has been taken.
    std::optional<double> hz() const;
    /// Whether bytes of a word have been written that the chip wasn't told to take.
    bool wordWaits() const { return waits_; }
    void forgetWaiting() { waits_ = false; }

  private:
    std::uint64_t written_ = 0;
    std::optional<std::uint64_t> taken_;
    bool waits_ = false;
};

/// The unit's shared synthesizer, 8 to 16 GHz, locked by way of the DDS and the offset chip: a prescaled VCO,
/// divided by the offset chip, is compared with the DDS's sideband of 1 GHz, and their difference with the
/// VCO divided by the main divider.
class SharedLo {
  public:
    SynthesizerRegisters& chip() { return chip_; }
    const SynthesizerRegisters& chip() const { return chip_; }
    Dds& dds() { return dds_; }
    const Dds& dds() const { return dds_; }
    void writeOffsetChip(std::uint16_t address, std::uint8_t value);

    /// Where its VCO, 8 to 16 GHz, is locked; nothing if the chip is off or in reset, or can't lock with what its
    /// registers, the DDS, the offset chip and the switches around them hold.
    std::optional<double> vcoHz(const Expander& expander) const;
    /// What the output delivers of it.
    std::optional<double> outputHz(const Expander& expander) const;

  private:
    std::optional<double> offsetLoopHz(const Expander& expander) const;
    double plainLoopHz() const;

    SynthesizerRegisters chip_{lowAndSharedImage()};
    Dds dds_;
    unsigned offsetCount_ = 0;
};

}  // namespace hxr::sim
