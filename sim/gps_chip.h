#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace hxr::sim {

/// The unit's GNSS receiver as it hears the host: bytes come in by a register port, four to a word, and form
/// UBX messages with idle bytes between them.
class GpsChip {
  public:
    using Configuration = std::map<std::uint32_t, std::uint64_t>;

    /// Takes the words of one register block, first byte in the low byte. A message may go on in the next
    /// block.
    /// @return  what is wrong with the messages that end here, a line each
    std::vector<std::string> take(std::span<const std::uint32_t> words);

    /// The values set so far, by key.
    const Configuration& configuration() const { return configuration_; }

    /// The time of the latest navigation solution, which the chip gives at its configured rate; where its
    /// messages have been switched off, of the last one before. Without a configuration it goes on with what
    /// an earlier session has left: a solution a second.
    std::chrono::sys_seconds solutionTime(std::chrono::sys_seconds now);

  private:
    using Bytes = std::span<const std::uint8_t>;

    /// Takes one message, stray byte or idle byte off the front; false if more must come first.
    bool takeNext(Bytes& rest);
    void handle(Bytes message);
    void setValues(Bytes payload);
    std::uint64_t valueOr(std::uint32_t key, std::uint64_t fallback) const;

    std::vector<std::uint8_t> unfinished_;
    std::vector<std::string> wrong_;
    Configuration configuration_;
    std::optional<std::chrono::sys_seconds> lastSolution_;
};

}  // namespace hxr::sim
