#include "support/peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace hxr::test {
namespace {

sockaddr_in socketAddress(const std::string& address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    if (::inet_pton(AF_INET, address.c_str(), &result.sin_addr) != 1) throw std::invalid_argument(address);
    return result;
}

}  // namespace

Peer::Peer(const std::string& address, std::uint16_t port) : descriptor_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const sockaddr_in local = socketAddress(address, port);
    const int on = 1;
    const int room = 4 << 20;
    ::setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    ::setsockopt(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        throw std::runtime_error("cannot bind " + address);
    }
}

Peer::~Peer() { ::close(descriptor_); }

void Peer::send(const std::string& address, std::uint16_t port, const std::vector<std::uint8_t>& datagram) {
    const sockaddr_in to = socketAddress(address, port);
    ::sendto(descriptor_, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to),
             sizeof to);
}

void Peer::sendWords(const std::string& address, std::uint16_t port,
                     const std::vector<std::uint32_t>& words) {
    std::vector<std::uint8_t> bytes(2048);
    for (std::size_t i = 0; i < 4 * words.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(words[i / 4] >> 8 * (i % 4));
    send(address, port, bytes);
}

std::optional<Peer::Datagram> Peer::receive(int timeoutMs) {
    pollfd state{descriptor_, POLLIN, 0};
    if (::poll(&state, 1, timeoutMs) <= 0) return std::nullopt;
    std::vector<std::uint8_t> bytes(65536);
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t got =
        ::recvfrom(descriptor_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (got < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(got));
    std::array<char, INET_ADDRSTRLEN> text{};
    return Datagram{bytes, ::inet_ntop(AF_INET, &from.sin_addr, text.data(), text.size())};
}

}  // namespace hxr::test
