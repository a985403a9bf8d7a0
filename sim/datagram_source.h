#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "sim/endpoint.h"
#include "sim/line_pacer.h"
#include "sim/udp_socket.h"
#include "sim/wake_event.h"

namespace hxr::sim {

/// What a `DatagramSource` sends, and how fast.
struct DatagramSourceOptions {
    Endpoint local{};
    Endpoint peer{};
    std::size_t datagramBytes = 8216;
    /// 0: as fast as the system takes them.
    double datagramsPerSecond = 152'000.0;
    /// Datagrams that leave in one system call, at most 64.
    std::size_t burst = 16;
    /// Hand bursts to the system as large blocks that it cuts up itself. Fewer than `burst` datagrams then go
    /// in one block if they would make it larger than 64 KiB.
    bool segmentationOffload = false;
};

/// What has been sent, and how long it took from the first datagram to the last.
struct SendReport {
    std::size_t datagrams = 0;
    std::chrono::nanoseconds time{0};
};

/// Sends datagrams at a steady pace, to try receivers with. Each begins with its number since the source was
/// made, 64 bits, least significant byte first, as far as its size allows.
class DatagramSource {
  public:
    /// @throws std::system_error if the local endpoint can't be bound
    explicit DatagramSource(const DatagramSourceOptions& options);
    ~DatagramSource();
    DatagramSource(const DatagramSource&) = delete;
    DatagramSource& operator=(const DatagramSource&) = delete;

    /// Sends so many datagrams to the peer and returns when the last has left. Not while `answer` waits.
    SendReport send(std::size_t count);

    /// Starts to wait, on a thread of its own, for one datagram from anywhere, and then sends so many to the
    /// peer.
    void answer(std::size_t count);
    /// Waits until the answer is out. Ends without one if `stop` comes first.
    SendReport waitForAnswer();
    /// Ends the wait for a trigger, or an answer on its way.
    void stop();

  private:
    std::size_t sendBurst(std::size_t count);
    std::size_t sendSegmented(std::size_t count);
    std::size_t sendOneByOne(std::size_t count);

    const DatagramSourceOptions options_;
    UdpSocket socket_;
    LinePacer pacer_;
    std::vector<std::uint8_t> block_;
    std::uint64_t number_ = 0;
    std::unique_ptr<WakeEvent> stopping_;
    std::thread thread_;
    SendReport answered_;
};

}  // namespace hxr::sim
