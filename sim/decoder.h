#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "sim/operations.h"

namespace hxr::sim {

/// Words of a command datagram.
inline constexpr std::size_t packetWords = 512;

/// Takes a command packet apart, one operation at a time, as the unit's sequencer reads it.
class PacketDecoder {
  public:
    explicit PacketDecoder(std::span<const std::uint32_t> words) : words_(words) {}

    /// The next operation; nothing at the packet's end.
    std::optional<Operation> next();

  private:
    bool atFiller() const { return position_ < words_.size() && words_[position_] <= 1; }

    std::span<const std::uint32_t> words_;
    std::size_t position_ = 0;
};

std::vector<Operation> decodePacket(std::span<const std::uint32_t> words);

/// A word of the data socket, where only sample requests have a meaning.
Action decodeDataSocketWord(std::uint32_t word);

}  // namespace hxr::sim
