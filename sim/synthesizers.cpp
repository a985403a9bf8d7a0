#include "sim/synthesizers.h"

#include <algorithm>
#include <cmath>

namespace hxr::sim {
namespace {

constexpr std::array<std::uint8_t, channelCount> nibbles = {0x9, 0xA, 0xD, 0xE};

constexpr std::uint8_t firstLowLo = 0x41;
constexpr std::uint8_t sharedLoChip = 0x45;
constexpr std::uint8_t ddsChip = 0x49;
constexpr std::uint8_t offsetChip = 0x4D;

/// Every tuning writes a synthesizer's integer divider, and every image ends with it.
constexpr std::uint16_t integerDivider = 0x10;

bool within(double vcoHz, double lowestHz, double highestHz) {
    return vcoHz >= lowestHz - vcoRoundingHz && vcoHz <= highestHz + vcoRoundingHz;
}

const char* tuned(const SynthesizerRegisters& chip, std::uint16_t address) {
    if (address != integerDivider || chip.imageLoaded()) return nullptr;
    return "synthesizer tuned without its image";
}

const char* writeLowOrShared(SynthesizerRegisters& chip, std::uint16_t address, std::uint8_t value) {
    // The reset stands in both end bits, so that it is understood in either bit order.
    constexpr std::uint8_t resetBits = 0x81;
    if (address == 0 && (value & resetBits) == resetBits) {
        chip.reset();
        return nullptr;
    }
    chip.write(address, value);
    return tuned(chip, address);
}

}  // namespace

std::optional<std::size_t> channelOfNibble(std::uint8_t nibble) {
    const auto found = std::find(nibbles.begin(), nibbles.end(), nibble);
    if (found == nibbles.end()) return std::nullopt;
    return static_cast<std::size_t>(found - nibbles.begin());
}

std::uint8_t nibbleOfChannel(std::size_t channel) { return nibbles.at(channel); }

const char* Synthesizers::write(const ChipWrite& write) {
    if (write.chip >= firstLowLo && write.chip < sharedLoChip) {
        return writeLowOrShared(low_[static_cast<std::size_t>(write.chip - firstLowLo)], write.address,
                                write.value);
    }
    if (write.chip == sharedLoChip) return writeLowOrShared(shared_.chip(), write.address, write.value);
    if (write.chip == ddsChip) shared_.dds().write(write.address, write.value);
    if (write.chip == offsetChip) shared_.writeOffsetChip(write.address, write.value);
    return nullptr;
}

const char* Synthesizers::write(const ChannelWrite& write) {
    constexpr std::uint8_t synthesizerTransfer = 0;
    const auto channel = channelOfNibble(write.nibble);
    if (!channel || write.transfer != synthesizerTransfer) return nullptr;
    const auto address = static_cast<std::uint16_t>(write.bits >> 8);
    high_[*channel].write(address, static_cast<std::uint8_t>(write.bits));
    return tuned(high_[*channel], address);
}

const char* Synthesizers::apply() {
    if (!shared_.dds().wordWaits()) return nullptr;
    shared_.dds().forgetWaiting();
    return "DDS word that the chip wasn't told to take";
}

std::optional<double> Synthesizers::lowLoHz(std::size_t channel) const {
    constexpr double referenceHz = 125e6;
    constexpr double fractions = 32.0;
    const SynthesizerRegisters& chip = low_.at(channel);
    const bool outputOn = chip.at(0x25) != 0;
    if (!chip.imageLoaded() || !outputOn) return std::nullopt;

    const int fraction = (chip.at(0x17) & 1) << 4 | chip.at(0x16) >> 4;
    const double vco = referenceHz * (chip.at(integerDivider) + fraction / fractions);
    if (!within(vco, 4e9, 8e9)) return std::nullopt;
    return std::ldexp(vco, -(chip.at(0x24) >> 4 & 7));
}

bool Synthesizers::highLoFollows(std::size_t channel) const {
    constexpr std::uint8_t ownReference = 0x40;
    return (high_.at(channel).at(0x20) & ownReference) == 0;
}

std::optional<double> Synthesizers::highLoHz(std::size_t channel, std::optional<double> sharedHz) const {
    constexpr double referenceHz = 250e6;
    constexpr double fractions = 512.0;
    constexpr std::uint8_t on = 1;
    constexpr std::uint8_t wholeDivider = 4;
    const SynthesizerRegisters& chip = high_.at(channel);
    if (!chip.imageLoaded() || chip.at(0x2B) != on) return std::nullopt;

    const int fraction = (chip.at(0x15) & 1) << 8 | chip.at(0x14);
    const bool whole = (chip.at(0x15) & wholeDivider) != 0;
    const int divider = chip.at(integerDivider);
    double output = referenceHz * (divider + (whole ? 0.0 : fraction / fractions));
    if (highLoFollows(channel)) {
        if (!sharedHz || !whole || fraction != 0) return std::nullopt;
        output = *sharedHz * divider;
    }
    // The divider counts the output behind the VCO's own divider.
    const double vco = std::ldexp(output, chip.at(0x11) >> 5);
    if (!within(vco, 11e9, 22e9)) return std::nullopt;
    return output;
}

}  // namespace hxr::sim
