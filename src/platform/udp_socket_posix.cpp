#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <optional>
#include <thread>

#include "platform/udp_socket.h"

namespace hxr::platform {
namespace {

// Room for the datagrams of eight requests of 256 in the system's own accounting, which counts about twice
// the 8216 bytes for each and doubles what it is asked for.
constexpr int wantedReceiveBuffer = 32 << 20;

// A refused datagram of ours comes back as an error of a later operation. Each such error is reported once,
// so a few repetitions get past all that are due.
constexpr int sendRepetitions = 8;

constexpr std::size_t largestReceive = 64;

class PosixUdpSocket final : public UdpSocket {
  public:
    PosixUdpSocket() : descriptor_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_UDP)) {}
    ~PosixUdpSocket() override {
        if (valid()) ::close(descriptor_);
    }
    PosixUdpSocket(const PosixUdpSocket&) = delete;
    PosixUdpSocket& operator=(const PosixUdpSocket&) = delete;

    bool valid() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    bool send(std::span<const std::byte> datagram) override {
        for (int attempt = 0; attempt < sendRepetitions; ++attempt) {
            const ssize_t sent =
                ::send(descriptor_, datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            if (sent >= 0) return sent == static_cast<ssize_t>(datagram.size());
            if (errno != ECONNREFUSED && errno != EINTR) return false;
        }
        return false;
    }

    void waitSendable(std::chrono::milliseconds timeout) override {
        const bool ready = waitFor(POLLOUT, static_cast<int>(timeout.count()));
        // The socket may have room while the interface below it has none: rest instead of asking again at
        // once.
        if (ready) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    std::size_t receive(std::span<ReceivePlace> places) override {
        const std::size_t count = std::min(places.size(), largestReceive);
        std::array<iovec, largestReceive> vectors;
        std::array<mmsghdr, largestReceive> messages;
        for (std::size_t i = 0; i < count; ++i) {
            vectors[i] = {places[i].data, places[i].room};
            messages[i] = {};
            messages[i].msg_hdr.msg_iov = &vectors[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        // An error here is that of an earlier datagram of ours, or that nothing has come: in both cases
        // nothing has.
        const int got =
            ::recvmmsg(descriptor_, messages.data(), static_cast<unsigned>(count), MSG_DONTWAIT, nullptr);
        if (got <= 0 || shutDown_.load(std::memory_order_relaxed)) return 0;
        for (std::size_t i = 0; i < static_cast<std::size_t>(got); ++i)
            places[i].length = messages[i].msg_len;
        return static_cast<std::size_t>(got);
    }

    std::size_t receiveBuffer() const override {
        int bytes = 0;
        socklen_t size = sizeof bytes;
        return ::getsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &bytes, &size) == 0
                   ? static_cast<std::size_t>(bytes)
                   : 0;
    }

    void waitReceivable() override { waitFor(POLLIN, -1); }

    void shutDown() override {
        // A socket that was shut down polls as readable, whoever waits and whenever the wait began.
        shutDown_.store(true, std::memory_order_relaxed);
        ::shutdown(descriptor_, SHUT_RDWR);
    }

  private:
    bool waitFor(short events, int timeoutMs) const {
        pollfd state{descriptor_, events, 0};
        return ::poll(&state, 1, timeoutMs) > 0;
    }

    const int descriptor_;
    std::atomic<bool> shutDown_ = false;
};

std::optional<sockaddr_in> socketAddress(const char* text, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    if (text == nullptr || ::inet_pton(AF_INET, text, &address.sin_addr) != 1) return std::nullopt;
    return address;
}

const sockaddr* generic(const sockaddr_in& address) { return reinterpret_cast<const sockaddr*>(&address); }

void enlargeReceiveBuffer(int descriptor) {
    const int bytes = wantedReceiveBuffer;
    // The first form goes beyond the system's limit and needs the privilege to; the second ends at that
    // limit.
    if (::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0) return;
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

void discardArrived(int descriptor) {
    std::byte nothing;
    while (::recv(descriptor, &nothing, sizeof nothing, MSG_DONTWAIT | MSG_TRUNC) >= 0 || errno == EINTR) {
    }
}

}  // namespace

std::shared_ptr<UdpSocket> UdpSocket::open(const char* localAddress, std::uint16_t localPort,
                                           const char* remoteAddress, std::uint16_t remotePort) {
    const auto local = socketAddress(localAddress, localPort);
    const auto remote = socketAddress(remoteAddress, remotePort);
    if (!local || !remote) return nullptr;

    auto socket = std::make_shared<PosixUdpSocket>();
    if (!socket->valid()) return nullptr;

    const int descriptor = socket->descriptor();
    const int on = 1;
    if (::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return nullptr;
    enlargeReceiveBuffer(descriptor);
    if (::bind(descriptor, generic(*local), sizeof *local) != 0) return nullptr;
    if (::connect(descriptor, generic(*remote), sizeof *remote) != 0) return nullptr;
    discardArrived(descriptor);
    return socket;
}

}  // namespace hxr::platform
