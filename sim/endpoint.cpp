#include "sim/endpoint.h"

#include <arpa/inet.h>

#include <stdexcept>

namespace hxr::sim {

Endpoint Endpoint::of(const std::string& dottedQuad, std::uint16_t port) {
    in_addr parsed{};
    if (inet_pton(AF_INET, dottedQuad.c_str(), &parsed) != 1) {
        throw std::invalid_argument("not an IPv4 address: " + dottedQuad);
    }
    return {ntohl(parsed.s_addr), port};
}

std::string Endpoint::addressText() const {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string(address >> shift & 255);
        if (shift > 0) text += '.';
    }
    return text;
}

std::string Endpoint::text() const { return addressText() + ":" + std::to_string(port); }

}  // namespace hxr::sim
