#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hxr::test {

/// A bare UDP socket that plays the other end of a wire.
class Peer {
  public:
    struct Datagram {
        std::vector<std::uint8_t> bytes;
        std::string fromAddress;
    };

    Peer(const std::string& address, std::uint16_t port);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void send(const std::string& address, std::uint16_t port, const std::vector<std::uint8_t>& datagram);

    /// Sends command words as one packet.
    void sendWords(const std::string& address, std::uint16_t port, const std::vector<std::uint32_t>& words);

    /// The next datagram, or nothing after the time-out.
    std::optional<Datagram> receive(int timeoutMs = 10'000);

  private:
    int descriptor_;
};

}  // namespace hxr::test
