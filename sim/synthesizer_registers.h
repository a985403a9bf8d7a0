#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>

namespace hxr::sim {

/// The serial registers of one synthesizer chip. After power-on and after a reset they hold nothing, and the
/// chip runs only once all registers of its image have been written again.
class SynthesizerRegisters {
  public:
    static constexpr std::size_t size = 512;
    using Set = std::bitset<size>;

    /// @param image  the registers that must be written before the chip runs
    explicit SynthesizerRegisters(const Set& image) : image_(image) {}

    void write(std::uint16_t address, std::uint8_t value);
    void reset();

    /// 0 if it hasn't been written since the reset.
    std::uint8_t at(std::uint16_t address) const { return values_[address]; }
    bool imageLoaded() const { return (written_ & image_) == image_; }

  private:
    Set image_;
    Set written_;
    std::array<std::uint8_t, size> values_{};
};

/// Set in the address of a word that asks a synthesizer to put a register on its read line.
inline constexpr std::uint16_t readRequest = 0x8000;

/// Registers in the image of a channel's low synthesizer, and of the shared one, which is a chip of the same
/// family.
const SynthesizerRegisters::Set& lowAndSharedImage();
/// Registers in the image of a channel's high synthesizer.
const SynthesizerRegisters::Set& highImage();

}  // namespace hxr::sim
