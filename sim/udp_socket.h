#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/endpoint.h"

namespace hxr::sim {

/// A UDP socket bound to one local endpoint, which nobody else may use meanwhile.
class UdpSocket {
  public:
    struct Received {
        std::size_t bytes;
        Endpoint sender;
    };

    /// @throws std::system_error that names the endpoint, if it is in use or not local
    explicit UdpSocket(const Endpoint& local);
    ~UdpSocket();
    UdpSocket(UdpSocket&& other) noexcept;
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    UdpSocket& operator=(UdpSocket&&) = delete;

    int descriptor() const { return descriptor_; }

    /// The next datagram that has arrived, cut to the buffer; nothing if none is there.
    std::optional<Received> receive(std::span<std::uint8_t> buffer);
    /// False if the system refused it.
    bool send(std::span<const std::uint8_t> datagram, const Endpoint& to);
    /// Hands the system a block that it cuts into datagrams of a length, the last one perhaps shorter. False if it
    /// refused.
    ///
    /// @param block  at most `largestPayload` bytes and 64 datagrams
    bool sendSegmented(std::span<const std::uint8_t> block, std::size_t datagramBytes, const Endpoint& to);

    static constexpr std::size_t largestPayload = 65'507;

  private:
    int descriptor_;
};

}  // namespace hxr::sim
