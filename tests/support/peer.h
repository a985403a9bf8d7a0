#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hxr::test {

/// A bare UDP socket that plays the other end of an endpoint.
class Peer {
  public:
    Peer(const std::string& address, std::uint16_t port);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void send(const std::string& address, std::uint16_t port, const std::vector<std::uint8_t>& datagram);

    /// The next datagram, or nothing after the time-out.
    std::vector<std::uint8_t> receive(int timeoutMs = 10'000);

    /// Whether a datagram lies ready to be received.
    bool hasDatagram() const;

  private:
    int descriptor_;
};

}  // namespace hxr::test
