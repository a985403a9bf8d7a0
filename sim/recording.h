#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <span>
#include <vector>

#include "sim/endpoint.h"
#include "sim/faults.h"
#include "sim/operations.h"

namespace hxr::sim {

/// A datagram as it reached one of the unit's sockets.
struct ReceivedPacket {
    std::chrono::steady_clock::time_point time;
    Endpoint sender;
    bool onDataSocket = false;
    std::size_t bytes = 0;
    std::vector<std::uint32_t> words;  ///< whole words only

    /// The words without the padding behind the last non-zero one.
    std::vector<std::uint32_t> content() const;
};

/// Totals since the unit was made or the recording cleared. Replies count also when a fault keeps them from
/// leaving.
struct TrafficCounts {
    std::size_t packets = 0;      ///< datagrams that reached the control socket
    std::size_t packetsDone = 0;  ///< of these, run to their last word
    std::size_t dataPackets = 0;  ///< datagrams that reached the data socket
    std::size_t words = 0;        ///< non-zero words in all of them
    std::size_t statusReplies = 0;
    std::size_t pageReplies = 0;
    std::size_t sampleReplies = 0;
    std::size_t streamReplies = 0;
    std::uint64_t pauseTicks = 0;
};

/// What a unit has seen and answered, for tests to look at from any thread.
class Recording {
  public:
    /// @param packetLimit  so many of the latest packets are kept
    explicit Recording(std::size_t packetLimit);

    TrafficCounts counts() const;
    /// The kept packets of the control socket, oldest first.
    std::vector<ReceivedPacket> packets() const;
    std::vector<ReceivedPacket> dataPackets() const;
    /// The non-zero words of the kept control packets, in order, as one list.
    std::vector<std::uint32_t> words() const;
    /// The commands in the kept control packets, in order, as one list.
    std::vector<Operation> operations() const;
    /// Replies per flash page.
    std::map<std::uint16_t, std::size_t> pagesServed() const;

    /// Waits until so many control packets have been run to their end, counted from the last clear.
    bool waitForPackets(std::size_t count, std::chrono::milliseconds timeout) const;
    bool waitForStatusReplies(std::size_t count, std::chrono::milliseconds timeout) const;
    bool waitForPages(std::size_t count, std::chrono::milliseconds timeout) const;

    void clear();

    // For the unit.
    void notePacket(std::span<const std::uint8_t> datagram, const Endpoint& sender, bool onDataSocket);
    void notePacketDone();
    void noteReply(ReplyKind kind, std::uint16_t page);
    void noteStreamReplies(std::size_t count);
    void notePause(std::uint16_t ticks);

  private:
    template <typename Predicate>
    bool waitUntil(Predicate reached, std::chrono::milliseconds timeout) const;
    std::vector<ReceivedPacket> select(bool onDataSocket) const;

    const std::size_t packetLimit_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    TrafficCounts counts_;
    bool packetCounts_ = false;  ///< the packet that runs came since the last clear
    std::deque<ReceivedPacket> packets_;
    std::map<std::uint16_t, std::size_t> pages_;
};

}  // namespace hxr::sim
