#include "sim/decoder.h"

#include <algorithm>
#include <array>
#include <utility>

namespace hxr::sim {
namespace {

constexpr std::uint8_t byteAt(std::uint32_t word, int shift) {
    return static_cast<std::uint8_t>(word >> shift);
}
constexpr std::uint16_t lowHalf(std::uint32_t word) { return static_cast<std::uint16_t>(word); }
constexpr std::uint16_t registerAddress(std::uint32_t word) { return static_cast<std::uint16_t>(word >> 8); }

Action chipWrite(std::uint32_t word) {
    return ChipWrite{byteAt(word, 24), registerAddress(word), byteAt(word, 0)};
}

Action channelWrite(std::uint32_t word) {
    constexpr std::uint32_t transferBits = 0x00FFFFFF;
    return ChannelWrite{static_cast<std::uint8_t>(word >> 28), static_cast<std::uint8_t>(word >> 24 & 15),
                        word & transferBits};
}

/// Register blocks take the words behind them, which the packet's reader adds.
Action registerBlock(std::uint32_t word) { return RegisterBlock{lowHalf(word), byteAt(word, 16), {}}; }

/// A form of word: its high byte, the bits below that are fields, and what the others must be.
struct Form {
    std::uint8_t opcode;
    std::uint32_t fieldBits;
    std::uint32_t fixed;
    Action (*decode)(std::uint32_t word);
};

constexpr std::uint32_t fields24 = 0xFFFFFF;
constexpr std::uint32_t fields16 = 0xFFFF;

// clang-format off
const Form forms[] = {
    {0x01, fields24, 0,          [](std::uint32_t w) -> Action { return SyncStrobe{byteAt(w, 16), lowHalf(w)}; }},
    {0x04, fields24, 0,          registerBlock},
    {0x05, fields24, 0,          [](std::uint32_t w) -> Action { return Pause{byteAt(w, 16), lowHalf(w)}; }},
    {0x06, fields16, 0x00010000, [](std::uint32_t w) -> Action { return ChainDelay{lowHalf(w)}; }},
    {0x0B, fields24, 0,          [](std::uint32_t w) -> Action { return Timebase{byteAt(w, 16), lowHalf(w)}; }},
    {0x0C, fields24, 0,          [](std::uint32_t w) -> Action { return FanSetting{byteAt(w, 16), lowHalf(w)}; }},
    {0x0E, fields24, 0,          [](std::uint32_t w) -> Action { return StreamEnable{byteAt(w, 16), lowHalf(w)}; }},
    {0x0F, fields16, 0,          [](std::uint32_t w) -> Action { return Route{lowHalf(w)}; }},
    {0x10, fields24, 0,          [](std::uint32_t w) -> Action { return ContextSetup{byteAt(w, 16), lowHalf(w)}; }},
    {0x11, 0,        8,          [](std::uint32_t) -> Action { return StatusRequest{}; }},
    {0x12, fields24, 0,          [](std::uint32_t w) -> Action { return Capture{w & fields24}; }},
    {0x13, fields24, 0,          [](std::uint32_t w) -> Action { return InputSelect{w & fields24}; }},
    {0x1D, 7,        0,          [](std::uint32_t w) -> Action { return LatchReadByte{static_cast<std::uint8_t>(w & 7)}; }},
    {0x1E, fields16, 0,          [](std::uint32_t w) -> Action { return SelectPage{lowHalf(w)}; }},
    {0x1F, 1,        0,          [](std::uint32_t w) -> Action { return FlashReadMode{(w & 1) == 1}; }},
    {0x20, fields16, 0,          [](std::uint32_t w) -> Action { return PatternLength{lowHalf(w)}; }},
    {0x41, fields24, 0,          chipWrite},  // low synthesizer of channel 0
    {0x42, fields24, 0,          chipWrite},
    {0x43, fields24, 0,          chipWrite},
    {0x44, fields24, 0,          chipWrite},
    {0x45, fields24, 0,          chipWrite},  // shared synthesizer
    {0x47, fields24, 0,          chipWrite},  // generator output
    {0x49, fields24, 0,          chipWrite},  // DDS
    {0x4A, fields24, 0,          chipWrite},
    {0x4B, fields24, 0,          chipWrite},
    {0x4C, 0,        0,          [](std::uint32_t) -> Action { return ApplyChips{}; }},
    {0x4D, fields24, 0,          chipWrite},  // offset chip
    {0x51, fields24, 0,          [](std::uint32_t w) -> Action { return ExpanderWrite{byteAt(w, 16), byteAt(w, 8), byteAt(w, 0)}; }},
    {0x52, 0xF0F,    0,          [](std::uint32_t w) -> Action { return BandSwitch{static_cast<std::uint8_t>(w >> 8 & 15), static_cast<std::uint8_t>(w & 15)}; }},
};
// clang-format on

/// Transfer kinds that the per-channel chips know, one bit each.
constexpr std::uint32_t channelTransfers = 1u << 0 | 1u << 1 | 1u << 2 | 1u << 3 | 1u << 4 | 1u << 8;
constexpr std::uint8_t firstChannelNibble = 8;

std::array<const Form*, 256> indexForms() {
    std::array<const Form*, 256> index{};
    for (const Form& form : forms) index[form.opcode] = &form;
    return index;
}

Action decodeWord(std::uint32_t word) {
    static const std::array<const Form*, 256> formOf = indexForms();
    if (word >> 28 >= firstChannelNibble) {
        return (channelTransfers >> (word >> 24 & 15) & 1) != 0 ? channelWrite(word) : UnknownWord{};
    }
    const Form* form = formOf[byteAt(word, 24)];
    if (form == nullptr || (word & fields24 & ~form->fieldBits) != form->fixed) return UnknownWord{};
    return form->decode(word);
}

}  // namespace

std::optional<Operation> PacketDecoder::next() {
    while (atFiller()) ++position_;
    if (position_ >= words_.size()) return std::nullopt;

    Operation operation{position_, words_[position_], 0, decodeWord(words_[position_])};
    ++position_;
    if (auto* block = std::get_if<RegisterBlock>(&operation.action)) {
        const std::size_t count = std::min<std::size_t>(block->announced, words_.size() - position_);
        const auto values = words_.subspan(position_, count);
        block->values.assign(values.begin(), values.end());
        position_ += count;
    }
    while (atFiller()) {
        ++operation.fillerBehind;
        ++position_;
    }
    return operation;
}

std::vector<Operation> decodePacket(std::span<const std::uint32_t> words) {
    std::vector<Operation> operations;
    PacketDecoder decoder(words);
    while (auto operation = decoder.next()) operations.push_back(std::move(*operation));
    return operations;
}

Action decodeDataSocketWord(std::uint32_t word) {
    constexpr std::uint32_t sampleRequest = 0x4366;
    if (word >> 16 != sampleRequest) return UnknownWord{};
    return SampleRequest{lowHalf(word)};
}

}  // namespace hxr::sim
