#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace hxr {

/// Command words in packets of 512, with the number of replies that each packet will cause.
///
/// A list is a value: whoever builds it owns it, may keep and resend it, and may copy it whole. It belongs to
/// one thread at a time. What doesn't fit the current packet is dropped; builders that can come near its end
/// begin a new one themselves. Nothing needs to end a packet: the unused rest is zero, and zero words do
/// nothing.
class CommandList {
  public:
    /// Starts the next packet; every list starts with one.
    void beginPacket();

    /// Empties the list; a cleared list holds no packet.
    void clear();

    /// Stores a word if the packet has room for it.
    void append(std::uint32_t word) { append(std::span(&word, 1)); }

    /// Stores a run of words if the packet has room for all of them.
    void append(std::span<const std::uint32_t> run);
    void append(std::initializer_list<std::uint32_t> run) { append(std::span(run.begin(), run.size())); }

    /// Counts datagrams that the words of the current packet will cause; the list must hold a packet.
    void expectData(std::uint32_t datagrams) { dataReplies_.back() += datagrams; }
    void expectStatus(std::uint32_t datagrams) { statusReplies_.back() += datagrams; }

    /// All words, always a whole number of packets.
    const std::vector<std::uint32_t>& words() const { return words_; }
    /// Where the next word goes.
    std::int32_t writeIndex() const { return writeIndex_; }
    std::size_t packetCount() const { return dataReplies_.size(); }
    /// The words of one packet.
    std::span<const std::uint32_t> packet(std::size_t position) const;
    /// Sample or flash datagrams that each packet causes.
    const std::vector<std::uint32_t>& dataReplies() const { return dataReplies_; }
    /// Status datagrams that each packet causes; they come behind the data.
    const std::vector<std::uint32_t>& statusReplies() const { return statusReplies_; }

  private:
    std::vector<std::uint32_t> words_;
    std::int32_t writeIndex_ = 0;
    std::vector<std::uint32_t> dataReplies_;
    std::vector<std::uint32_t> statusReplies_;
};

/// A list of one packet with the given words.
CommandList singlePacket(std::span<const std::uint32_t> words);
inline CommandList singlePacket(std::initializer_list<std::uint32_t> words) {
    return singlePacket(std::span(words.begin(), words.size()));
}

}  // namespace hxr
