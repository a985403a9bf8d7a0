#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "sim/operations.h"
#include "sim/shared_lo.h"
#include "sim/synthesizer_registers.h"
#include "sim/vco_tables.h"

namespace hxr::sim {

inline constexpr std::size_t channelCount = 4;

/// The channel that a per-channel word's high nibble addresses; nothing for the converter pairs.
std::optional<std::size_t> channelOfNibble(std::uint8_t nibble);
std::uint8_t nibbleOfChannel(std::size_t channel);

/// The nine synthesizers of a unit: what each would put out follows from its registers alone.
class Synthesizers {
  public:
    // Run a word. They give what is wrong with it, null if nothing is.
    const char* write(const ChipWrite& write);
    const char* write(const ChannelWrite& write);
    const char* apply();

    /// The channel's low synthesizer; nothing if it is off, in reset or can't lock.
    std::optional<double> lowLoHz(std::size_t channel) const;
    /// The shared synthesizer of this unit.
    std::optional<double> sharedLoHz(const Expander& expander) const { return shared_.outputHz(expander); }
    std::optional<double> sharedVcoHz(const Expander& expander) const { return shared_.vcoHz(expander); }
    /// The channel's high synthesizer, on its own reference or on `sharedHz`, as its registers tell.
    std::optional<double> highLoHz(std::size_t channel, std::optional<double> sharedHz) const;
    /// Whether the channel's high synthesizer is set to the shared reference.
    bool highLoFollows(std::size_t channel) const;

    // How a VCO stands: as its registers set it or, where they leave that to the chip, as it has calibrated itself.
    // Nothing if it isn't locked. Of a high synthesizer's core, registers hold the lowest two bits.
    std::optional<VcoSetting> lowVco(std::size_t channel, const VcoTables& tables) const;
    std::optional<VcoSetting> sharedVco(const Expander& expander, const VcoTables& tables) const;
    std::optional<VcoSetting> highVco(std::size_t channel, std::optional<double> sharedHz,
                                      const VcoTables& tables) const;

    /// What stands on the unit's read line; nothing where no chip has been asked that is led there.
    std::optional<std::uint8_t> readByte(const Expander& expander, const VcoTables& tables) const;

  private:
    static std::array<SynthesizerRegisters, channelCount> four(const SynthesizerRegisters::Set& image) {
        return {SynthesizerRegisters(image), SynthesizerRegisters(image), SynthesizerRegisters(image),
                SynthesizerRegisters(image)};
    }

    enum class Family { low, shared, high };
    /// A register that was asked for.
    struct Read {
        Family family;
        std::size_t channel;
        std::uint16_t address;
    };

    const char* writeLowOrShared(SynthesizerRegisters& chip, const Read& place, const ChipWrite& write);
    const char* leadHighLine(std::size_t channel, std::uint32_t bits);
    std::optional<double> lowVcoHz(std::size_t channel) const;

    std::optional<Read> read_;
    std::optional<std::size_t> highLine_;  ///< the channel whose high synthesizer is led to the read line
    std::array<SynthesizerRegisters, channelCount> low_ = four(lowAndSharedImage());
    std::array<SynthesizerRegisters, channelCount> high_ = four(highImage());
    SharedLo shared_;
};

}  // namespace hxr::sim
