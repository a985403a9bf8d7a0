#include "sim/unit_state.h"

namespace hxr::sim {
namespace {

std::uint32_t chipKey(std::uint8_t chip, std::uint16_t address) {
    return std::uint32_t{chip} << 16 | address;
}

std::uint32_t transferKey(std::uint8_t nibble, std::uint8_t transfer) {
    return static_cast<std::uint32_t>(nibble << 4 | transfer);
}

std::uint32_t channelKey(std::uint8_t nibble, std::uint8_t transfer, std::uint16_t address) {
    return transferKey(nibble, transfer) << 16 | address;
}

template <typename Value>
std::optional<Value> find(const std::map<std::uint32_t, std::uint32_t>& values, std::uint32_t key) {
    const auto found = values.find(key);
    if (found == values.end()) return std::nullopt;
    return static_cast<Value>(found->second);
}

}  // namespace

void RegisterFile::write(std::uint16_t address, std::uint32_t value) {
    values_[address] = value;
    written_[address] = true;
}

std::optional<std::uint32_t> RegisterFile::read(std::uint16_t address) const {
    if (!written_[address]) return std::nullopt;
    return values_[address];
}

void ChipShadow::write(const ChipWrite& write) { chips_[chipKey(write.chip, write.address)] = write.value; }

void ChipShadow::write(const ChannelWrite& write) {
    constexpr std::uint8_t converterTransfer = 2;
    const int valueBits = write.transfer == converterTransfer ? 16 : 8;
    const auto address = static_cast<std::uint16_t>(write.bits >> valueBits);
    const std::uint32_t value = write.bits & ((1u << valueBits) - 1);
    transfers_[transferKey(write.nibble, write.transfer)] = write.bits;
    channels_[channelKey(write.nibble, write.transfer, address)] = value;
}

std::optional<std::uint8_t> ChipShadow::chipRegister(std::uint8_t chip, std::uint16_t address) const {
    return find<std::uint8_t>(chips_, chipKey(chip, address));
}

std::optional<std::uint32_t> ChipShadow::lastTransfer(std::uint8_t nibble, std::uint8_t transfer) const {
    return find<std::uint32_t>(transfers_, transferKey(nibble, transfer));
}

std::optional<std::uint32_t> ChipShadow::channelRegister(std::uint8_t nibble, std::uint8_t transfer,
                                                         std::uint16_t address) const {
    return find<std::uint32_t>(channels_, channelKey(nibble, transfer, address));
}

}  // namespace hxr::sim
