#include "sim/datagram_batch.h"

namespace hxr::sim {

void DatagramBatch::add(std::size_t bytes) {
    end_ += bytes;
    ends_.push_back(end_);
}

void DatagramBatch::clear() {
    ends_.clear();
    end_ = 0;
}

std::span<const std::uint8_t> DatagramBatch::datagram(std::size_t index) const {
    return std::span(bytes_).subspan(begin(index), ends_[index] - begin(index));
}

// Those of one length that follow each other make a block.
void DatagramBatch::send(UdpSocket& socket, const Endpoint& to) const {
    for (std::size_t first = 0; first < count();) {
        const std::size_t length = datagram(first).size();
        std::size_t next = first + 1;
        while (next < count() && datagram(next).size() == length &&
               ends_[next] - begin(first) <= UdpSocket::largestPayload) {
            ++next;
        }
        const auto block = std::span(bytes_).subspan(begin(first), ends_[next - 1] - begin(first));
        // A line with shorter packets than these datagrams, or a system that doesn't cut, takes them singly.
        if (next == first + 1 || !socket.sendSegmented(block, length, to)) {
            for (std::size_t i = first; i < next; ++i) socket.send(datagram(i), to);
        }
        first = next;
    }
}

}  // namespace hxr::sim
