#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <mutex>
#include <optional>
#include <vector>

#include "sim/endpoint.h"

namespace hxr::sim {

/// `samples` are those of captures, `stream` the datagrams of a stream.
enum class ReplyKind { any, status, page, samples, stream };

/// Which replies a fault falls on: the first `skip` that match pass unharmed, the next `times` are hit.
struct ReplyMatch {
    ReplyKind kind = ReplyKind::any;
    std::optional<std::uint16_t> page{};  ///< only this flash page
    std::size_t skip = 0;
    std::size_t times = 1;

    static constexpr std::size_t always = std::numeric_limits<std::size_t>::max();
};

/// What happens to a reply on its way. Faults on one reply add up, those added later last.
struct ReplyFault {
    struct Corruption {
        std::size_t offset;
        std::uint8_t flippedBits;
    };

    bool lost = false;
    std::optional<std::size_t> length;  ///< cut, or filled up with zeros
    std::optional<std::uint32_t> magic;
    std::vector<Corruption> corruptions;
    std::chrono::milliseconds delay{0};  ///< later replies aren't held back by it
    std::size_t copies = 1;
    bool swappedWithNext = false;
    std::optional<Endpoint> sentFrom;  ///< port 0: any free one

    static ReplyFault lose();
    static ReplyFault setLength(std::size_t bytes);
    static ReplyFault setMagic(std::uint32_t value);
    static ReplyFault corrupt(std::size_t offset, std::uint8_t flippedBits);
    static ReplyFault delayBy(std::chrono::milliseconds time);
    static ReplyFault duplicate(std::size_t copies = 2);
    static ReplyFault swapWithNext();
    static ReplyFault sendFrom(Endpoint source);
};

/// The faults that a unit is told to have. May be changed from any thread while the unit runs.
class FaultPlan {
  public:
    void add(const ReplyMatch& match, const ReplyFault& fault);
    /// Forgets all faults on replies.
    void clear();
    /// Replies that a fault has fallen on so far.
    std::size_t hits() const;

    /// From now on the unit runs `count` more datagrams and answers nothing after them.
    void silenceAfterDatagrams(std::size_t count);
    /// From now on the unit sends `count` more replies, then nothing, and runs nothing either.
    void silenceAfterReplies(std::size_t count);
    /// Ends the silence, and any that is set for later.
    void revive();
    bool silent() const;
    /// Whether nothing of all this is set: replies then need not be taken one by one.
    bool none() const;

    /// For the unit: notes a datagram that came in; false if the unit is silent.
    bool takeDatagram();
    /// For the unit: the faults that fall on the reply that is about to leave; lost if the unit is silent.
    ReplyFault takeReply(ReplyKind kind, std::optional<std::uint16_t> page);

  private:
    struct Rule {
        ReplyMatch match;
        ReplyFault fault;
    };

    mutable std::mutex mutex_;
    std::vector<Rule> rules_;
    std::size_t hits_ = 0;
    std::optional<std::size_t> datagramsLeft_;
    std::optional<std::size_t> repliesLeft_;
};

}  // namespace hxr::sim
