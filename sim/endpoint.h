#pragma once

#include <cstdint>
#include <string>

namespace hxr::sim {

/// An IPv4 address and a UDP port, both in host byte order.
struct Endpoint {
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    /// @throws std::invalid_argument if the text is no dotted quad
    static Endpoint of(const std::string& dottedQuad, std::uint16_t port);

    bool isLoopback() const { return address >> 24 == 127; }
    /// "127.0.0.2:5000"
    std::string text() const;
    std::string addressText() const;

    friend bool operator==(const Endpoint&, const Endpoint&) = default;
};

}  // namespace hxr::sim
