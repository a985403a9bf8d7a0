/// A connected IPv4 datagram socket.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace hxr::platform {

/// A place for one datagram, and how much of it came.
struct ReceivePlace {
    std::byte* data = nullptr;
    std::size_t room = 0;
    std::size_t length = 0;  ///< bytes received; a longer datagram is cut at `room`
};

/// One socket, bound to a local and connected to a remote address, so that only that peer's datagrams arrive.
///
/// Any thread may use any operation at any time. The socket goes back to the system in the destructor.
class UdpSocket {
  public:
    /// Opens, binds and connects, with address reuse on and a receive buffer as large as the system allows.
    /// What other senders put into the socket before it was connected is thrown away.
    ///
    /// @param localAddress, remoteAddress  IPv4 addresses as dotted decimal text
    /// @return null if a text is no dotted quad or the system refuses a step
    static std::shared_ptr<UdpSocket> open(const char* localAddress, std::uint16_t localPort,
                                           const char* remoteAddress, std::uint16_t remotePort);

    virtual ~UdpSocket() = default;

    /// Hands one datagram to the system without waiting.
    /// @return false if the system doesn't take it now
    virtual bool send(std::span<const std::byte> datagram) = 0;

    /// Waits until the system has room to send, or for `timeout`.
    virtual void waitSendable(std::chrono::milliseconds timeout) = 0;

    /// Takes datagrams that have arrived into `places`, first come first, without waiting.
    /// @return how many places were filled, at most as many as are given and at most 64
    virtual std::size_t receive(std::span<ReceivePlace> places) = 0;

    /// Bytes that the system keeps of what has arrived and wasn't received, by its own count.
    virtual std::size_t receiveBuffer() const = 0;

    /// Waits until something has arrived, or until `shutDown`.
    virtual void waitReceivable() = 0;

    /// Ends every wait on this socket, now and later. Nothing is sent or received from then on.
    virtual void shutDown() = 0;
};

}  // namespace hxr::platform
