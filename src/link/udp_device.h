/// The datagram endpoint through which everything passes between the library and a receiver unit.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace hxr {

/// Slots of an endpoint, for sends and, independently, for receives.
inline constexpr int slotCount = 32;

/// Receives that one slot can hold at a time.
inline constexpr int receivesPerSlot = 256;

/// Bytes of every datagram that is sent: 512 command words.
inline constexpr std::size_t sendBytes = 2048;
inline constexpr std::size_t wordsPerPacket = sendBytes / sizeof(std::uint32_t);

/// Room for one received datagram, a jumbo frame; what is longer is cut.
inline constexpr std::size_t receiveRoom = 9000;

/// What `collectReceives` hands back: the datagrams of the last post of a slot, in order of arrival.
///
/// The buffers belong to the endpoint and may be rewritten in place. All stays valid until the slot's next
/// post.
struct ReceiveResult {
    bool timedOut = false;                              ///< the batch is not complete; once set it stays set
    std::int32_t count = 0;                             ///< receives of the last post
    std::array<std::byte*, receivesPerSlot> buffers{};  ///< `receiveRoom` bytes each
    std::array<std::uint32_t, receivesPerSlot> lengths{};  ///< bytes received in each, 0 where none came
};

/// A datagram endpoint without framing and without repetition: it sends datagrams of 2048 bytes and receives
/// into buffers that were posted beforehand, one for each datagram that is due. A datagram that doesn't come
/// is a time-out, and a time-out is the end of the link.
///
/// For a reply: `postReceives`, `send`, `waitSend`, `collectReceives`. A slot belongs to one thread at a
/// time; different slots may be used at the same time. `close` may be called from any thread and ends every
/// wait.
class UDPDevice {
  public:
    virtual ~UDPDevice() = default;

    virtual bool isOpen() const = 0;

    /// Binds to the local address and port and connects to the remote ones, dotted decimal texts both.
    /// @return false if the system refuses a step
    virtual bool open(const char* localAddress, const char* remoteAddress, std::uint16_t localPort,
                      std::uint16_t remotePort) = 0;

    /// Ends every wait, gives back socket and buffers. Always true, also when there was nothing to close.
    virtual bool close() = 0;

    /// What `open` was given: empty texts and 0 when closed.
    virtual std::string localAddress() const = 0;
    virtual std::string remoteAddress() const = 0;
    virtual std::uint16_t localPort() const = 0;
    virtual std::uint16_t remotePort() const = 0;

    /// Sends 512 words as one datagram, least significant byte first. The words stay in place until
    /// `waitSend` of the same slot returns. On a lost endpoint nothing goes out; a send on a slot whose last
    /// send wasn't waited for makes the endpoint lost.
    virtual void send(int slot, const std::uint32_t* words) = 0;

    /// Tells how the slot's send ended. One that the system didn't take within 2000 ms loses the endpoint.
    /// @return bytes sent: 2048, or 0
    virtual std::size_t waitSend(int slot) = 0;

    /// Makes room for the next `count` datagrams, 0 to 256, behind what other slots have posted before.
    virtual void postReceives(int slot, int count, unsigned timeoutMs) = 0;

    /// Waits for all posted receives of the slot, 64 at a time, each time for up to the slot's time-out. A
    /// batch that isn't complete by then closes the socket. Never null.
    virtual ReceiveResult* collectReceives(int slot) = 0;

    /// Takes back the receives of the slot that nothing has arrived for; the result's `count` is what
    /// remains.
    /// @return receives taken back
    virtual int withdrawReceives(int slot) = 0;

    /// Discards the datagrams that have arrived and that no receive was posted for. To be called while no receive is
    /// posted.
    virtual void discardArrived() = 0;

    /// Whether the endpoint has failed, by a send or receive time-out or a send on a busy slot: it sends
    /// nothing any more. Stays set for the endpoint's life.
    virtual bool lost() const = 0;
};

}  // namespace hxr
