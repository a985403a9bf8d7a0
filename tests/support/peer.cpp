#include "support/peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

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

bool readable(int descriptor, int timeoutMs) {
    pollfd state{descriptor, POLLIN, 0};
    return ::poll(&state, 1, timeoutMs) > 0;
}

}  // namespace

Peer::Peer(const std::string& address, std::uint16_t port) : descriptor_(::socket(AF_INET, SOCK_DGRAM, 0)) {
    const sockaddr_in local = socketAddress(address, port);
    const int on = 1;
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

std::vector<std::uint8_t> Peer::receive(int timeoutMs) {
    if (!readable(descriptor_, timeoutMs)) return {};
    std::vector<std::uint8_t> datagram(65536);
    const ssize_t got = ::recv(descriptor_, datagram.data(), datagram.size(), 0);
    datagram.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
    return datagram;
}

bool Peer::hasDatagram() const { return readable(descriptor_, 50); }

}  // namespace hxr::test
