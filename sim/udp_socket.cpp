#include "sim/udp_socket.h"

#include <netinet/udp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "sim/socket_address.h"

namespace hxr::sim {
namespace {

constexpr int closed = -1;

/// Room for a host that sends a whole plan of packets at once.
void enlargeBuffers(int descriptor) {
    const int wanted = 4 << 20;
    if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &wanted, sizeof wanted) != 0) {
        setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &wanted, sizeof wanted);
    }
    setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &wanted, sizeof wanted);
}

}  // namespace

UdpSocket::UdpSocket(const Endpoint& local)
    : descriptor_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "no socket");
    enlargeBuffers(descriptor_);
    const sockaddr_in address = socketAddress(local);
    if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int reason = errno;
        close(descriptor_);
        throw std::system_error(reason, std::generic_category(), "can't serve on " + local.text());
    }
}

UdpSocket::UdpSocket(UdpSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, closed)) {}

UdpSocket::~UdpSocket() {
    if (descriptor_ != closed) close(descriptor_);
}

std::optional<UdpSocket::Received> UdpSocket::receive(std::span<std::uint8_t> buffer) {
    sockaddr_in sender{};
    socklen_t length = sizeof sender;
    ssize_t bytes = 0;
    do {
        bytes = recvfrom(descriptor_, buffer.data(), buffer.size(), MSG_DONTWAIT,
                         reinterpret_cast<sockaddr*>(&sender), &length);
    } while (bytes < 0 && errno == EINTR);
    if (bytes < 0) return std::nullopt;
    return Received{static_cast<std::size_t>(bytes), endpointOf(sender)};
}

bool UdpSocket::send(std::span<const std::uint8_t> datagram, const Endpoint& to) {
    const sockaddr_in address = socketAddress(to);
    const ssize_t sent = sendto(descriptor_, datagram.data(), datagram.size(), 0,
                                reinterpret_cast<const sockaddr*>(&address), sizeof address);
    return sent == static_cast<ssize_t>(datagram.size());
}

bool UdpSocket::sendSegmented(std::span<const std::uint8_t> block, std::size_t datagramBytes,
                              const Endpoint& to) {
    sockaddr_in address = socketAddress(to);
    iovec whole{const_cast<std::uint8_t*>(block.data()), block.size()};  // only read
    const auto segment = static_cast<std::uint16_t>(datagramBytes);
    alignas(cmsghdr) std::array<std::uint8_t, CMSG_SPACE(sizeof segment)> control{};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = &whole;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_UDP;
    header->cmsg_type = UDP_SEGMENT;
    header->cmsg_len = CMSG_LEN(sizeof segment);
    std::memcpy(CMSG_DATA(header), &segment, sizeof segment);
    return sendmsg(descriptor_, &message, 0) == static_cast<ssize_t>(block.size());
}

}  // namespace hxr::sim
