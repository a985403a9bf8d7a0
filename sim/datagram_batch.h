#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/data_datagram.h"
#include "sim/endpoint.h"
#include "sim/udp_socket.h"

namespace hxr::sim {

/// Datagrams that go to one place in one go, one behind the other in memory.
class DatagramBatch {
  public:
    /// @param most  datagrams of `dataDatagramBytes` that there is room for
    explicit DatagramBatch(std::size_t most) : bytes_(most * dataDatagramBytes) {}

    bool hasRoom() const { return bytes_.size() - end_ >= dataDatagramBytes; }
    /// Where the next datagram is to be written.
    std::span<std::uint8_t> room() { return std::span(bytes_).subspan(end_, dataDatagramBytes); }
    /// Takes in what has been written there.
    void add(std::size_t bytes);
    void clear();

    std::size_t count() const { return ends_.size(); }
    std::size_t bytes() const { return end_; }
    std::span<const std::uint8_t> datagram(std::size_t index) const;

    /// Sends all in their order, as few calls as the system allows.
    void send(UdpSocket& socket, const Endpoint& to) const;

  private:
    std::size_t begin(std::size_t index) const { return index == 0 ? 0 : ends_[index - 1]; }

    std::vector<std::uint8_t> bytes_;
    std::vector<std::size_t> ends_;
    std::size_t end_ = 0;
};

}  // namespace hxr::sim
