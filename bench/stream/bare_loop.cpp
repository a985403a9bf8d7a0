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

constexpr std::uint16_t dataPort = 4991, ownPort = 4992;
constexpr std::size_t datagramBytes = 8216, headerBytes = 20, payloadSamples = 2048, requestBytes = 2048;
constexpr std::size_t turnsPerRequest = 64, requestsUnderWay = 8, mostAtOnce = 64;

sockaddr_in socketAddress(const char* text, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    ::inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

}  // namespace

BareLoop::BareLoop(const char* hostAddress, const char* unitAddress, std::size_t channels,
                   std::size_t perCall)
    : socket_(::socket(AF_INET, SOCK_DGRAM, 0)), channels_(channels), perCall_(perCall) {
    const sockaddr_in own = socketAddress(hostAddress, ownPort), unit = socketAddress(unitAddress, dataPort);
    constexpr int room = 64 << 20;
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    if (::bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
        ::connect(socket_, reinterpret_cast<const sockaddr*>(&unit), sizeof unit) != 0)
        throw std::runtime_error("no socket for the bare loop");
    rings_.assign(channels, std::vector<std::uint32_t>(ringSamples));
    buffers_.assign(channels, std::vector<std::uint32_t>(perCall));
}

BareLoop::~BareLoop() { ::close(socket_); }

void BareLoop::request() {
    std::array<std::uint32_t, requestBytes / sizeof(std::uint32_t)> block{};
    block[0] = 0x43660000 | static_cast<std::uint32_t>(turnsPerRequest * channels_);
    if (::send(socket_, block.data(), requestBytes, 0) < 0) throw std::runtime_error("nothing can be sent");
}

void BareLoop::store(const std::byte* datagram) {
    const std::size_t at = datagrams_ / channels_ * payloadSamples % ringSamples;
    std::memcpy(&rings_[datagrams_ % channels_][at], datagram + headerBytes,
                payloadSamples * sizeof(std::uint32_t));
    ++datagrams_;
}

void BareLoop::fetch() {
    while (datagrams_ / channels_ * payloadSamples >= fetched_ + perCall_) {
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
    for (std::size_t i = 0; i < requestsUnderWay; ++i) request();
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    std::size_t answered = datagrams_;
    while (std::chrono::steady_clock::now() < end) {
        const int count = ::recvmmsg(socket_, messages.data(), mostAtOnce, MSG_WAITFORONE, nullptr);
        if (count < 0) throw std::runtime_error("nothing can be received");
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) store(rooms[i].data());
        for (; datagrams_ >= answered + turnsPerRequest * channels_; answered += turnsPerRequest * channels_)
            request();
        fetch();
    }
    return static_cast<double>((fetched_ - before) * channels_);
}
