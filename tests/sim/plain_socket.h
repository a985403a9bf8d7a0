#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace hxr::sim::testing {

/// A loopback address that no other test in any process uses at the same time.
inline std::string ownAddress() {
    static int count = 0;
    const int process = getpid();
    return "127." + std::to_string(1 + process % 250) + "." + std::to_string(process / 250 % 250) + "." +
           std::to_string(2 + count++);
}

/// The host's side of a wire: a bare socket that says from where each datagram came.
class PlainSocket {
  public:
    struct Datagram {
        std::vector<std::uint8_t> bytes;
        std::string fromAddress;
        std::uint16_t fromPort;
    };

    PlainSocket(const std::string& address, std::uint16_t port)
        : descriptor_(socket(AF_INET, SOCK_DGRAM, 0)) {
        const int room = 4 << 20;
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        const sockaddr_in local = place(address, port);
        if (bind(descriptor_, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
            throw std::runtime_error("can't bind " + address);
        }
    }
    ~PlainSocket() { close(descriptor_); }
    PlainSocket(const PlainSocket&) = delete;
    PlainSocket& operator=(const PlainSocket&) = delete;

    void sendBytes(const std::vector<std::uint8_t>& bytes, const std::string& address, std::uint16_t port) {
        const sockaddr_in to = place(address, port);
        sendto(descriptor_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }

    void sendWords(const std::vector<std::uint32_t>& words, const std::string& address, std::uint16_t port) {
        std::vector<std::uint8_t> bytes(2048);
        for (std::size_t i = 0; i < words.size(); ++i) {
            for (std::size_t b = 0; b < 4; ++b)
                bytes[4 * i + b] = static_cast<std::uint8_t>(words[i] >> (8 * b));
        }
        sendBytes(bytes, address, port);
    }

    std::optional<Datagram> receive(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        const auto wait = std::chrono::duration_cast<std::chrono::microseconds>(timeout).count();
        const timeval limit{wait / 1'000'000, wait % 1'000'000};
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        std::array<std::uint8_t, 65536> buffer;
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const auto got = recvfrom(descriptor_, buffer.data(), buffer.size(), 0,
                                  reinterpret_cast<sockaddr*>(&from), &length);
        if (got < 0) return std::nullopt;
        return Datagram{{buffer.begin(), buffer.begin() + got}, text(from), ntohs(from.sin_port)};
    }

  private:
    static sockaddr_in place(const std::string& address, std::uint16_t port) {
        sockaddr_in socketPlace{};
        socketPlace.sin_family = AF_INET;
        socketPlace.sin_port = htons(port);
        inet_pton(AF_INET, address.c_str(), &socketPlace.sin_addr);
        return socketPlace;
    }

    static std::string text(const sockaddr_in& from) {
        std::array<char, INET_ADDRSTRLEN> buffer{};
        return inet_ntop(AF_INET, &from.sin_addr, buffer.data(), buffer.size());
    }

    int descriptor_;
};

}  // namespace hxr::sim::testing
