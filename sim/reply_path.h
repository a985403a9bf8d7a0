#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "sim/datagram_batch.h"
#include "sim/endpoint.h"
#include "sim/faults.h"
#include "sim/line_pacer.h"
#include "sim/rule_book.h"
#include "sim/udp_socket.h"

namespace hxr::sim {

/// A datagram on its way to the host.
struct Reply {
    ReplyKind kind;
    std::optional<std::uint16_t> page;
    Endpoint to;
    std::vector<std::uint8_t> bytes;
};

/// The road of replies from the unit to the line: applies the faults that are due, keeps the pace, holds back
/// what is delayed. Belongs to the thread that serves.
class ReplyPath {
  public:
    using Clock = std::chrono::steady_clock;

    /// @param paced  hold to the pace of a 10-gigabit line
    ReplyPath(FaultPlan& faults, RuleBook& rules, bool paced);

    /// Sends a reply by the socket on which its request came, which must live as long as replies are held
    /// back.
    void send(Reply reply, UdpSocket& socket);
    /// The same for datagrams of a stream.
    void send(const DatagramBatch& batch, const Endpoint& to, UdpSocket& socket);
    /// Sends what was delayed until now.
    void sendDue();
    /// When the next delayed reply is due.
    std::optional<Clock::time_point> nextDue() const;
    /// Forgets all that is held back, and closes the sockets that faults have opened.
    void reset();

  private:
    struct Departure {
        Reply reply;
        UdpSocket* socket;
        std::size_t copies;
    };

    void depart(const Departure& departure);
    UdpSocket* socketAt(const Endpoint& source);

    FaultPlan& faults_;
    RuleBook& rules_;
    LinePacer pacer_;
    std::multimap<Clock::time_point, Departure> delayed_;
    std::vector<Departure> swapped_;
    std::list<std::pair<Endpoint, UdpSocket>> otherSockets_;  // delayed replies keep pointers into it
};

}  // namespace hxr::sim
