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
constexpr std::uint16_t highOutputDivider = 0x11;

bool within(double vcoHz, double lowestHz, double highestHz) {
    return vcoHz >= lowestHz - vcoRoundingHz && vcoHz <= highestHz + vcoRoundingHz;
}

const char* tuned(const SynthesizerRegisters& chip, std::uint16_t address) {
    if (address != integerDivider || chip.imageLoaded()) return nullptr;
    return "synthesizer tuned without its image";
}

// A bit of each chip that leaves the VCO's setting to the chip.
bool lowChoosesVco(const SynthesizerRegisters& chip) { return (chip.at(0x34) & 0x80) != 0; }
bool highChoosesVco(const SynthesizerRegisters& chip) { return (chip.at(0x20) & 0x80) != 0; }

VcoSetting setOnLow(const SynthesizerRegisters& chip) {
    return {static_cast<std::uint8_t>(chip.at(0x38) >> 4), chip.at(0x37),
            static_cast<std::uint8_t>(chip.at(0x38) & 15)};
}

VcoSetting setOnHigh(const SynthesizerRegisters& chip) {
    const int upper = chip.at(0x16), lower = chip.at(0x15);
    return {static_cast<std::uint8_t>(upper >> 7 | (lower >> 6 & 1) << 1),
            static_cast<std::uint8_t>((upper & 127) << 1 | lower >> 7), chip.at(0x35)};
}

/// A low or shared synthesizer gives its setting while it may choose it, and reading is switched on.
std::uint8_t readOnLow(const SynthesizerRegisters& chip, std::uint16_t address, const VcoSetting& setting) {
    const bool takesTable = (chip.at(0x20) & 8) != 0;
    const bool readable = (chip.at(0x33) & 32) != 0;
    const bool second = (chip.at(0x33) & 64) != 0;
    if (takesTable || !readable) return 0;
    if (address == 0x6F) return setting.a;
    if (address == 0x6E) return second ? setting.c : setting.b;
    return 0;
}

/// The upper two cores of a high synthesizer have a bias of their own; the other's register holds something else.
std::uint8_t readOnHigh(std::uint16_t address, const VcoSetting& setting) {
    const bool upperCores = (setting.a & 2) != 0;
    const auto otherBias = static_cast<std::uint8_t>(~setting.c);
    switch (address) {
        case 0x5F:
            return setting.a;
        case 0x5E:
            return setting.b;
        case 0x59:
            return upperCores ? otherBias : setting.c;
        case 0x5A:
            return upperCores ? setting.c : otherBias;
        default:
            return 0;
    }
}

}  // namespace

std::optional<std::size_t> channelOfNibble(std::uint8_t nibble) {
    const auto found = std::find(nibbles.begin(), nibbles.end(), nibble);
    if (found == nibbles.end()) return std::nullopt;
    return static_cast<std::size_t>(found - nibbles.begin());
}

std::uint8_t nibbleOfChannel(std::size_t channel) { return nibbles.at(channel); }

const char* Synthesizers::writeLowOrShared(SynthesizerRegisters& chip, const Read& place,
                                           const ChipWrite& write) {
    // The reset stands in both end bits, so that it is understood in either bit order.
    constexpr std::uint8_t resetBits = 0x81;
    if (write.address == 0 && (write.value & resetBits) == resetBits) {
        chip.reset();
        return nullptr;
    }
    if ((write.address & readRequest) != 0) read_ = place;
    chip.write(write.address, write.value);
    return tuned(chip, write.address);
}

const char* Synthesizers::write(const ChipWrite& write) {
    const auto address = static_cast<std::uint16_t>(write.address & ~readRequest);
    if (write.chip >= firstLowLo && write.chip < sharedLoChip) {
        const auto channel = static_cast<std::size_t>(write.chip - firstLowLo);
        return writeLowOrShared(low_[channel], {Family::low, channel, address}, write);
    }
    if (write.chip == sharedLoChip)
        return writeLowOrShared(shared_.chip(), {Family::shared, 0, address}, write);
    if (write.chip == ddsChip) shared_.dds().write(write.address, write.value);
    if (write.chip == offsetChip) shared_.writeOffsetChip(write.address, write.value);
    return nullptr;
}

// Two channels share a line, and the lowest bit tells which of them it is.
const char* Synthesizers::leadHighLine(std::size_t channel, std::uint32_t bits) {
    constexpr std::uint32_t led = 2;
    highLine_.reset();
    if (bits == 0) return nullptr;
    if (bits != (led | (channel & 1))) return "read line led to no channel";
    highLine_ = channel;
    return nullptr;
}

const char* Synthesizers::write(const ChannelWrite& write) {
    constexpr std::uint8_t synthesizerTransfer = 0, readLineTransfer = 8;
    const auto channel = channelOfNibble(write.nibble);
    if (channel && write.transfer == readLineTransfer) return leadHighLine(*channel, write.bits);
    if (!channel || write.transfer != synthesizerTransfer) return nullptr;
    const auto address = static_cast<std::uint16_t>(write.bits >> 8);
    if ((address & readRequest) != 0)
        read_ = {Family::high, *channel, static_cast<std::uint16_t>(address & ~readRequest)};
    high_[*channel].write(address, static_cast<std::uint8_t>(write.bits));
    return tuned(high_[*channel], address);
}

const char* Synthesizers::apply() {
    if (!shared_.dds().wordWaits()) return nullptr;
    shared_.dds().forgetWaiting();
    return "DDS word that the chip wasn't told to take";
}

std::optional<double> Synthesizers::lowVcoHz(std::size_t channel) const {
    constexpr double referenceHz = 125e6;
    constexpr double fractions = 32.0;
    const SynthesizerRegisters& chip = low_.at(channel);
    const bool outputOn = chip.at(0x25) != 0;
    if (!chip.imageLoaded() || !outputOn) return std::nullopt;

    const int fraction = (chip.at(0x17) & 1) << 4 | chip.at(0x16) >> 4;
    const double vco = referenceHz * (chip.at(integerDivider) + fraction / fractions);
    if (!within(vco, 4e9, 8e9)) return std::nullopt;
    return vco;
}

std::optional<double> Synthesizers::lowLoHz(std::size_t channel) const {
    const auto vco = lowVcoHz(channel);
    if (!vco) return std::nullopt;
    return std::ldexp(*vco, -(low_.at(channel).at(0x24) >> 4 & 7));
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
    const double vco = std::ldexp(output, chip.at(highOutputDivider) >> 5);
    if (!within(vco, 11e9, 22e9)) return std::nullopt;
    return output;
}

std::optional<VcoSetting> Synthesizers::lowVco(std::size_t channel, const VcoTables& tables) const {
    const auto vco = lowVcoHz(channel);
    if (!vco) return std::nullopt;
    const SynthesizerRegisters& chip = low_.at(channel);
    return lowChoosesVco(chip) ? tables.low(channel, *vco) : setOnLow(chip);
}

std::optional<VcoSetting> Synthesizers::sharedVco(const Expander& expander, const VcoTables& tables) const {
    const auto vco = sharedVcoHz(expander);
    if (!vco) return std::nullopt;
    const SynthesizerRegisters& chip = shared_.chip();
    return lowChoosesVco(chip) ? tables.shared(*vco) : setOnLow(chip);
}

std::optional<VcoSetting> Synthesizers::highVco(std::size_t channel, std::optional<double> sharedHz,
                                                const VcoTables& tables) const {
    const auto output = highLoHz(channel, sharedHz);
    if (!output) return std::nullopt;
    const SynthesizerRegisters& chip = high_.at(channel);
    if (!highChoosesVco(chip)) return setOnHigh(chip);
    return tables.high(channel, std::ldexp(*output, chip.at(highOutputDivider) >> 5));
}

std::optional<std::uint8_t> Synthesizers::readByte(const Expander& expander, const VcoTables& tables) const {
    if (!read_) return std::nullopt;
    const auto& [family, channel, address] = *read_;
    switch (family) {
        case Family::low:
            return readOnLow(low_.at(channel), address, lowVco(channel, tables).value_or(VcoSetting{}));
        case Family::shared:
            return readOnLow(shared_.chip(), address, sharedVco(expander, tables).value_or(VcoSetting{}));
        case Family::high:
            break;
    }
    if (highLine_ != channel) return std::nullopt;
    return readOnHigh(address, highVco(channel, sharedLoHz(expander), tables).value_or(VcoSetting{}));
}

}  // namespace hxr::sim
