#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include "link/udp_device.h"
#include "platform/aligned_memory.h"
#include "platform/clock.h"
#include "platform/thread.h"
#include "platform/udp_socket.h"

namespace hxr {

/// The endpoint over a UDP socket of the operating system.
///
/// The system's socket keeps only what its own buffer holds, a few milliseconds at full rate. So that a
/// posted receive keeps its datagram whatever the collecting thread is doing, an open endpoint has a thread
/// of its own that moves datagrams into the posted buffers as they arrive: receives are served in the order
/// in which they were posted. Nothing is taken from the socket beyond what has been posted.
class WinUDPInterface final : public UDPDevice {
  public:
    using SocketOpener = std::function<decltype(platform::UdpSocket::open)>;

    explicit WinUDPInterface(platform::Clock& clock = platform::systemClock(),
                             SocketOpener openSocket = platform::UdpSocket::open);
    ~WinUDPInterface() override;
    WinUDPInterface(const WinUDPInterface&) = delete;
    WinUDPInterface& operator=(const WinUDPInterface&) = delete;

    bool isOpen() const override;
    bool open(const char* localAddress, const char* remoteAddress, std::uint16_t localPort,
              std::uint16_t remotePort) override;
    bool close() override;
    std::string localAddress() const override;
    std::string remoteAddress() const override;
    std::uint16_t localPort() const override;
    std::uint16_t remotePort() const override;
    void send(int slot, const std::uint32_t* words) override;
    std::size_t waitSend(int slot) override;
    void postReceives(int slot, int count, unsigned timeoutMs) override;
    ReceiveResult* collectReceives(int slot) override;
    int withdrawReceives(int slot) override;
    void discardArrived() override;
    bool lost() const override { return lost_; }

  private:
    /// One ring entry of receives: made by `open`, released by `close`.
    struct ReceiveSlot {
        int pendingCount = 0;  ///< receives posted and not collected
        int arrived = 0;       ///< of these, the ones that hold their datagram
        std::chrono::steady_clock::time_point batchArrived{};  ///< when the last whole 64 of these were there
        unsigned timeoutMs = 1000;
        int touched = 0;  ///< buffers whose memory the system has given
        ReceiveResult result;
        std::condition_variable progress;
    };

    /// One send in flight. Big-endian hosts turn the words round in `wireWords`.
    struct SendSlot {
        std::size_t pending = 0;  ///< bytes in flight, 0 when the slot is free
        bool sent = false;
        std::shared_ptr<platform::UdpSocket> socket;  ///< where it couldn't be sent
        std::array<std::uint32_t, wordsPerPacket> wireWords;
    };

    /// The slots whose receives wait for datagrams, in the order of their posts.
    class PostOrder {
      public:
        bool empty() const { return count_ == 0; }
        int size() const { return count_; }
        int operator[](int position) const { return slots_[static_cast<std::size_t>(position)]; }
        void append(int slot) { slots_[static_cast<std::size_t>(count_++)] = slot; }
        void remove(int slot);
        void clear() { count_ = 0; }

      private:
        std::array<int, slotCount> slots_{};
        int count_ = 0;
    };

    using Lock = std::unique_lock<std::mutex>;

    /// While it lives, the receive slots stay, also where the lock is given away meanwhile. Made and ended
    /// under lock.
    class SlotUse {
      public:
        explicit SlotUse(WinUDPInterface& endpoint) : endpoint_(endpoint) { ++endpoint_.users_; }
        ~SlotUse() {
            --endpoint_.users_;
            if (endpoint_.closing_) endpoint_.usersLeft_.notify_all();
        }
        SlotUse(const SlotUse&) = delete;
        SlotUse& operator=(const SlotUse&) = delete;

      private:
        WinUDPInterface& endpoint_;
    };

    /// While it lives, the mover keeps its hands off all buffers. Made and ended under lock, which it gives
    /// away while the mover finishes what it is at.
    class MoverPause {
      public:
        MoverPause(WinUDPInterface& endpoint, Lock& lock) : endpoint_(endpoint) {
            ++endpoint_.pausesWanted_;
            endpoint_.moverPaused_.wait(lock, [this] { return !endpoint_.moving_; });
        }
        ~MoverPause() {
            --endpoint_.pausesWanted_;
            endpoint_.posted_.notify_one();
        }
        MoverPause(const MoverPause&) = delete;
        MoverPause& operator=(const MoverPause&) = delete;

      private:
        WinUDPInterface& endpoint_;
    };

    void release();
    bool sendNow(const std::shared_ptr<platform::UdpSocket>& socket, std::span<const std::byte> datagram);
    void loseEndpoint(Lock& lock);
    void lookOnceMore(Lock& lock);
    void moveDatagrams(const std::shared_ptr<platform::UdpSocket>& socket);
    int receivesDue() const;
    std::size_t choosePlaces(std::span<platform::ReceivePlace> places);
    void publishArrived(std::span<const platform::ReceivePlace> places);
    int takeBack(Lock& lock, ReceiveSlot& slot, int number);
    void endSocket(Lock& lock);
    void touchBuffers(Lock& lock, ReceiveSlot& slot);
    ReceiveSlot* slotAt(int slot) const { return receiveSlots_[static_cast<std::size_t>(slot)].get(); }
    std::shared_ptr<platform::UdpSocket> socketNow() const;

    platform::Clock& clock_;
    const SocketOpener openSocket_;
    std::atomic<bool> lost_ = false;

    std::mutex lifecycle_;      ///< held while the endpoint is opened or closed
    mutable std::mutex mutex_;  ///< guards all below but the send slots, which belong to their threads
    std::shared_ptr<platform::UdpSocket> socket_;  ///< null when closed
    std::string localAddress_, remoteAddress_;
    std::uint16_t localPort_ = 0, remotePort_ = 0;
    platform::AlignedArray<std::byte> buffers_;
    std::array<std::unique_ptr<ReceiveSlot>, slotCount> receiveSlots_;
    PostOrder postOrder_;
    std::condition_variable posted_;
    bool moving_ = false;   ///< the mover is filling buffers, without the lock
    int pausesWanted_ = 0;  ///< threads that wait for the mover to pause
    std::condition_variable moverPaused_;
    int users_ = 0;         ///< threads that use a receive slot
    bool closing_ = false;  ///< the receive slots go as soon as nobody uses them
    std::condition_variable usersLeft_;
    ReceiveResult closedResult_;  ///< what a collect on a closed endpoint gets

    std::array<SendSlot, slotCount> sendSlots_;
    platform::Thread mover_;
};

}  // namespace hxr
