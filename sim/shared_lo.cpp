#include "sim/shared_lo.h"

#include <bit>
#include <cmath>
#include <cstddef>

namespace hxr::sim {
namespace {

constexpr double clockHz = 1e9;
constexpr double referenceHz = 125e6;
constexpr double lowestVcoHz = 8e9;
constexpr double highestVcoHz = 16e9;

constexpr bool bit(std::uint8_t value, int position) { return (value >> position & 1) != 0; }

/// v of the loop: the sideband of 1 GHz that the switches let through; nothing if they don't agree on one.
std::optional<double> sidebandHz(double ddsHz, const Expander& expander) {
    const bool upper = bit(expander[3], 5);
    const bool lower = bit(expander[3], 7);
    const bool lowerFilter = bit(expander[6], 4);
    if (upper == lower || lower != lowerFilter) return std::nullopt;
    return upper ? clockHz + ddsHz : clockHz - ddsHz;
}

}  // namespace

void Dds::write(std::uint16_t address, std::uint8_t value) {
    constexpr std::uint16_t takeWord = 0x0005;
    constexpr std::uint16_t lowestByte = 0x01A6;
    constexpr std::uint16_t highestByte = 0x01AB;
    if (address == takeWord && value == 1) {
        taken_ = written_;
        waits_ = false;
    } else if (address >= lowestByte && address <= highestByte) {
        const int shift = 8 * (address - lowestByte);
        constexpr std::uint64_t byteMask = 0xFF;
        written_ = (written_ & ~(byteMask << shift)) | std::uint64_t{value} << shift;
        waits_ = true;
    }
}

std::optional<double> Dds::hz() const {
    constexpr int wordBits = 48;
    if (!taken_) return std::nullopt;
    return std::ldexp(clockHz * static_cast<double>(*taken_), -wordBits);
}

void SharedLo::writeOffsetChip(std::uint16_t address, std::uint8_t value) {
    constexpr std::uint16_t divider = 0x16;
    if (address == divider) offsetCount_ = value & 7;
}

// With h the prescaled VCO, q the offset chip's divider and v the sideband, the loop rests where the
// difference of h / q and v is h / m, on the side that the phase detector's polarity tells.
std::optional<double> SharedLo::offsetLoopHz(const Expander& expander) const {
    const auto dds = dds_.hz();
    const auto v = dds ? sidebandHz(*dds, expander) : std::nullopt;
    if (!v || offsetCount_ == 0 || chip_.at(0x10) == 0) return std::nullopt;

    const bool prescaledByFour = bit(expander[3], 0);
    const double q = offsetCount_;
    const double m = prescaledByFour ? chip_.at(0x10) / 2.0 : chip_.at(0x10);
    const bool vcoAboveSideband = !bit(chip_.at(0x1E), 3);
    const double balance = vcoAboveSideband ? 1.0 / q - 1.0 / m : 1.0 / q + 1.0 / m;
    if (balance <= 0.0) return std::nullopt;
    return *v / balance * (prescaledByFour ? 4.0 : 2.0);
}

double SharedLo::plainLoopHz() const {
    constexpr double fractions = 512.0;
    const int fraction = (chip_.at(0x17) & 1) << 8 | chip_.at(0x16);
    return 2.0 * referenceHz * (chip_.at(0x10) + fraction / fractions);
}

std::optional<double> SharedLo::vcoHz(const Expander& expander) const {
    const bool outputOn = chip_.at(0x25) != 0;
    if (!chip_.imageLoaded() || !outputOn) return std::nullopt;

    // One of the four VCO cores must be in, unless the chip chooses it by itself.
    const bool choosesVco = bit(chip_.at(0x34), 7);
    const auto core = static_cast<unsigned>(chip_.at(0x38) >> 4);
    if (!choosesVco && !std::has_single_bit(core)) return std::nullopt;

    const bool wholeDivider = chip_.at(0x2B) == 1;
    const auto vco = wholeDivider ? offsetLoopHz(expander) : plainLoopHz();
    if (!vco || *vco < lowestVcoHz - vcoRoundingHz || *vco > highestVcoHz + vcoRoundingHz)
        return std::nullopt;
    return vco;
}

std::optional<double> SharedLo::outputHz(const Expander& expander) const {
    const auto vco = vcoHz(expander);
    if (!vco) return std::nullopt;
    return std::ldexp(*vco, -((chip_.at(0x24) >> 4 & 7) + 1));
}

}  // namespace hxr::sim
