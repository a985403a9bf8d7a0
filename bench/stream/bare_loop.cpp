#include "bare_loop.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace {

constexpr std::size_t datagramBytes = 8216, headerBytes = 20, identifierEnd = 7, payloadSamples = 2048;
constexpr std::size_t mostAtOnce = 64;

sockaddr_in socketAddress(const char* text, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

}  // namespace

BareLoop::BareLoop(const char* hostAddress, std::uint16_t port, std::size_t channels, std::size_t perCall)
    : socket_(::socket(AF_INET, SOCK_DGRAM, 0)), channels_(channels), perCall_(perCall), stored_(channels) {
    const sockaddr_in own = socketAddress(hostAddress, port);
    constexpr int room = 64 << 20;
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    if (::bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0)
        throw std::runtime_error("no socket for the bare loop");
    rings_.assign(channels, std::vector<std::uint32_t>(ringSamples));
    buffers_.assign(channels, std::vector<std::uint32_t>(perCall));
}

BareLoop::~BareLoop() { ::close(socket_); }

void BareLoop::store(const std::byte* datagram) {
    // Stream identifiers count from 1.
    const std::size_t channel = std::to_integer<std::size_t>(datagram[identifierEnd]) - 1;
    std::memcpy(&rings_[channel][stored_[channel] % ringSamples], datagram + headerBytes,
                payloadSamples * sizeof(std::uint32_t));
    stored_[channel] += payloadSamples;
}

void BareLoop::fetch() {
    while (*std::ranges::min_element(stored_) >= fetched_ + perCall_) {
        for (std::size_t channel = 0; channel < channels_; ++channel) {
            const std::size_t at = fetched_ % ringSamples, first = std::min(perCall_, ringSamples - at);
            std::memcpy(buffers_[channel].data(), &rings_[channel][at], first * sizeof(std::uint32_t));
            std::memcpy(buffers_[channel].data() + first, rings_[channel].data(),
                        (perCall_ - first) * sizeof(std::uint32_t));
        }
        fetched_ += perCall_;
    }
}

double BareLoop::run(double seconds) {
    std::vector<std::array<std::byte, datagramBytes>> rooms(mostAtOnce);
    std::vector<iovec> places(mostAtOnce);
    std::vector<mmsghdr> messages(mostAtOnce);
    for (std::size_t i = 0; i < mostAtOnce; ++i) {
        places[i] = {rooms[i].data(), datagramBytes};
        messages[i].msg_hdr.msg_iov = &places[i];
        messages[i].msg_hdr.msg_iovlen = 1;
    }
    const std::size_t before = fetched_;
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < end) {
        const int count = ::recvmmsg(socket_, messages.data(), mostAtOnce, MSG_WAITFORONE, nullptr);
        if (count < 0) throw std::runtime_error("nothing can be received");
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) store(rooms[i].data());
        fetch();
    }
    return static_cast<double>((fetched_ - before) * channels_);
}
